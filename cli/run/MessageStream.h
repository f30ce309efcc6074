#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Cli {

/// A stream of messages that a server of NATS keeps, read as one of several workers that share them
/// by a consumer of the stream: each message goes to one worker, and to another one if it is not
/// acknowledged in time. The connection is made again whenever it breaks. One thread at a time;
/// messages are independent of each other.
class MessageStream {
public:
    struct Source {
        std::string url;
        std::string stream;
        std::string consumer = "kestrel";  ///< Made when it is missing, and kept by the server.
        std::int64_t ackSeconds = 60;      ///< For a consumer that is made.
    };

    /// A message that came; to be acknowledged, or left to another worker.
    class Message {
    public:
        virtual ~Message() = default;
        virtual std::string_view text() const = 0;
        /// The sequence number in the stream, from 1.
        virtual std::int64_t number() const = 0;
        /// Whether it was delivered before.
        virtual bool isRepeated() const = 0;
        /// Tells the server that the message is done. False when that is not certain: it may come
        /// again.
        virtual bool acknowledge() = 0;
    };

    /// Loads the client's library, which takes longer to load than most scripts to run, connects
    /// and finds the stream. Null, with a reason in `error`, when one of them fails.
    static std::unique_ptr<MessageStream> open(const Source& source, std::string& error);

    MessageStream() = default;
    MessageStream(const MessageStream&) = delete;
    MessageStream& operator=(const MessageStream&) = delete;
    virtual ~MessageStream() = default;

    /// The next message, after a wait of up to half a second; null when none came.
    virtual std::unique_ptr<Message> next() = 0;
    /// Whether all messages of the stream were acknowledged; false when the server does not answer.
    virtual bool isDone() = 0;
};

/// What the library has under the name `openNatsStreamS`: as `MessageStream::open`.
using OpenStream = MessageStream* (*)(const MessageStream::Source& source, std::string& error);
inline constexpr const char* openNatsStreamS = "kestrelOpenNatsStream";

}  // namespace Cli
