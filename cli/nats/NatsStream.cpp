#include <nats/nats.h>

#include <deque>
#include <utility>

#include "cli/run/MessageStream.h"

// The library that `kestrel work` loads.

namespace Cli {

namespace {

/// How the library's objects end.
struct NatsDestroyer {
    void operator()(natsOptions* object) const { natsOptions_Destroy(object); }
    void operator()(natsConnection* object) const { natsConnection_Destroy(object); }
    void operator()(jsCtx* object) const { jsCtx_Destroy(object); }
    void operator()(natsSubscription* object) const { natsSubscription_Destroy(object); }
    void operator()(natsMsg* object) const { natsMsg_Destroy(object); }
};
template <class T>
using NatsObject = std::unique_ptr<T, NatsDestroyer>;

constexpr std::int64_t secondS = 1'000'000'000;
constexpr std::int64_t waitMillisS = 500;
// Messages that are asked for at once: while others are worked on, these are on their way.
constexpr int atOnceS = 8;

class NatsMessage final : public MessageStream::Message {
public:
    NatsMessage(NatsObject<natsMsg> message, std::int64_t number, bool isRepeated)
        : message_(std::move(message)), number_(number), isRepeated_(isRepeated) {}

    std::string_view text() const override {
        return {natsMsg_GetData(message_.get()),
                static_cast<std::size_t>(natsMsg_GetDataLength(message_.get()))};
    }
    std::int64_t number() const override { return number_; }
    bool isRepeated() const override { return isRepeated_; }
    bool acknowledge() override {
        return natsMsg_AckSync(message_.get(), nullptr, nullptr) == NATS_OK;
    }

private:
    NatsObject<natsMsg> message_;
    std::int64_t number_;
    bool isRepeated_;
};

class NatsStream final : public MessageStream {
public:
    explicit NatsStream(Source source) : source_(std::move(source)) {}
    ~NatsStream() override {
        connection_.reset();
        nats_Close();
    }

    /// Connects and finds the stream; false, with a reason in `error`.
    bool open(std::string& error);
    std::unique_ptr<Message> next() override;
    bool isDone() override;

private:
    struct Connection {
        NatsObject<natsOptions> options;
        NatsObject<natsConnection> link;
        NatsObject<jsCtx> context;
        NatsObject<natsSubscription> subscription;
        std::deque<NatsObject<natsMsg>> waiting;
    };

    const Source source_;
    std::unique_ptr<Connection> connection_ = std::make_unique<Connection>();
};

bool NatsStream::open(std::string& error) {
    Connection& connection = *connection_;
    const auto fail = [&](const std::string& what, natsStatus status) {
        // "(file.c:1): what it is", if anything.
        const char* const last = nats_GetLastError(nullptr);
        std::string reason = last != nullptr ? last : "";
        if (reason.starts_with('(')) reason.erase(0, reason.find("): ") + 3);
        error = what + ": " + (reason.empty() ? natsStatus_GetText(status) : reason);
        return false;
    };
    natsOptions* options = nullptr;
    natsStatus status = natsOptions_Create(&options);
    connection.options.reset(options);
    if (status == NATS_OK) status = natsOptions_SetURL(options, source_.url.c_str());
    if (status == NATS_OK) status = natsOptions_SetMaxReconnect(options, -1);
    if (status == NATS_OK) status = natsOptions_SetReconnectWait(options, 200);
    natsConnection* link = nullptr;
    if (status == NATS_OK) status = natsConnection_Connect(&link, options);
    connection.link.reset(link);
    jsCtx* context = nullptr;
    if (status == NATS_OK) status = natsConnection_JetStream(&context, link, nullptr);
    connection.context.reset(context);
    if (status != NATS_OK) return fail(source_.url, status);

    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = source_.consumer.c_str();
    config.AckPolicy = js_AckExplicit;
    config.AckWait = source_.ackSeconds * secondS;
    config.MaxDeliver = -1;
    // One that exists stays as it is.
    jsConsumerInfo* info = nullptr;
    const char* const stream = source_.stream.c_str();
    if (js_GetConsumerInfo(&info, context, stream, config.Durable, nullptr, nullptr) != NATS_OK) {
        status = js_AddConsumer(&info, context, stream, &config, nullptr, nullptr);
    }
    jsConsumerInfo_Destroy(info);
    jsSubOptions choice;
    jsSubOptions_Init(&choice);
    choice.Stream = stream;
    choice.Consumer = config.Durable;
    choice.ManualAck = true;
    natsSubscription* subscription = nullptr;
    if (status == NATS_OK) {
        status = js_PullSubscribe(&subscription, context, nullptr, config.Durable, nullptr, &choice,
                                  nullptr);
    }
    connection.subscription.reset(subscription);
    return status == NATS_OK || fail(source_.url + ", stream " + source_.stream, status);
}

std::unique_ptr<MessageStream::Message> NatsStream::next() {
    auto& waiting = connection_->waiting;
    if (waiting.empty()) {
        natsMsgList list{nullptr, 0};
        const natsStatus status = natsSubscription_Fetch(&list, connection_->subscription.get(),
                                                         atOnceS, waitMillisS, nullptr);
        for (int i = 0; i < list.Count; ++i) {
            waiting.emplace_back(list.Msgs[i]);
            list.Msgs[i] = nullptr;
        }
        natsMsgList_Destroy(&list);
        if (status != NATS_OK && status != NATS_TIMEOUT) nats_Sleep(waitMillisS / 2);
    }
    if (waiting.empty()) return nullptr;
    NatsObject<natsMsg> message = std::move(waiting.front());
    waiting.pop_front();
    // The time for those that wait here begins anew.
    for (const auto& other : waiting) natsMsg_InProgress(other.get(), nullptr);
    jsMsgMetaData* data = nullptr;
    if (natsMsg_GetMetaData(&data, message.get()) != NATS_OK) return nullptr;
    const auto number = static_cast<std::int64_t>(data->Sequence.Stream);
    const bool isRepeated = data->NumDelivered > 1;
    jsMsgMetaData_Destroy(data);
    return std::make_unique<NatsMessage>(std::move(message), number, isRepeated);
}

bool NatsStream::isDone() {
    jsConsumerInfo* info = nullptr;
    if (js_GetConsumerInfo(&info, connection_->context.get(), source_.stream.c_str(),
                           source_.consumer.c_str(), nullptr, nullptr) != NATS_OK) {
        return false;
    }
    const bool isDone = info->NumPending == 0 && info->NumAckPending == 0;
    jsConsumerInfo_Destroy(info);
    return isDone;
}

}  // namespace

}  // namespace Cli

extern "C" __attribute__((visibility("default"))) Cli::MessageStream* kestrelOpenNatsStream(
    const Cli::MessageStream::Source& source, std::string& error) {
    auto stream = std::make_unique<Cli::NatsStream>(source);
    return stream->open(error) ? stream.release() : nullptr;
}
