#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

namespace Author {

using Json = nlohmann::json;

/// Messages of JSON-RPC over two file descriptors, each after a header with its length. Messages
/// are read ahead by a thread, so that a request can be cancelled while another one is answered.
class Connection {
public:
    enum Error : int {
        ParseError = -32700,
        InvalidRequest = -32600,
        MethodNotFound = -32601,
        InvalidParams = -32602,
        InternalError = -32603,
        NotInitialized = -32002,
        RequestFailed = -32803,
        RequestCancelled = -32800,
    };

    /// Who speaks: that of editors about texts, or that of debuggers, whose messages have another
    /// form.
    enum class Protocol { Language, Debug };

    /// Neither descriptor is owned.
    Connection(int input, int output, Protocol protocol = Protocol::Language);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    /// Takes what is sent, in place of a descriptor.
    using Sink = std::function<void(const Json& message)>;
    /// Nothing is read, and no thread is made.
    explicit Connection(Sink sink) : input_(-1), output_(-1), sink_(std::move(sink)) {}
    /// Waits for the end of the input.
    ~Connection();

    /// The next message, or none at the end of the input. One that is no JSON is answered; in the
    /// protocol of debuggers, null stands for it.
    std::optional<Json> next();
    /// Whether the request was cancelled; forgets that.
    bool wasCancelled(const Json& id);

    // Any thread.
    void reply(const Json& id, Json result);
    /// The same with a result that is written as JSON already.
    void replyWritten(const Json& id, const std::string& result);
    void fail(const Json& id, Error code, const std::string& message);
    void notify(const std::string& method, Json params);
    void send(const Json& message);

private:
    void sendText(const std::string& body);
    void read();
    // The text of the next message; none at the end of the input.
    std::optional<std::string> readMessage();
    bool readLine(std::string& line);
    bool fill();

    const int input_;
    const int output_;
    const Protocol protocol_ = Protocol::Language;
    const Sink sink_;  // of a connection without descriptors
    std::string buffer_;
    std::size_t used_ = 0;
    std::mutex outputMutex_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<std::string> messages_;
    std::set<std::string> cancelled_;  // the ids, as JSON
    bool isAtEnd_ = false;
    std::thread reader_;
};

}  // namespace Author
