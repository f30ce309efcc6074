#include "author/server/Connection.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

namespace Author {

namespace {

// Longer messages are skipped.
constexpr std::size_t mostBytesS = std::size_t{256} << 20;
constexpr std::size_t mostWaitingS = 100000;

std::string textOf(const Json& json) {
    // Texts from files may hold bytes that are no UTF-8.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// The levels of objects and arrays. Copies of deep ones would take more stack than there is.
std::size_t depthOf(std::string_view text) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    bool isText = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char byte = text[i];
        if (isText && byte == '\\') {
            ++i;
        } else if (byte == '"') {
            isText = !isText;
        } else if (!isText && (byte == '[' || byte == '{')) {
            deepest = std::max(deepest, ++depth);
        } else if (!isText && (byte == ']' || byte == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

std::string methodOf(const std::string& message, const char* key = "method") {
    const Json json = Json::parse(message, nullptr, false);
    if (!json.is_object() || !json.contains(key) || !json[key].is_string()) return {};
    return json[key];
}

}  // namespace

Connection::Connection(int input, int output, Protocol protocol)
    : input_(input), output_(output), protocol_(protocol), reader_([this] { read(); }) {}

Connection::~Connection() {
    if (reader_.joinable()) reader_.join();
}

bool Connection::fill() {
    if (used_ > 0) buffer_.erase(0, std::exchange(used_, 0));
    constexpr std::size_t size = 65536;
    const std::size_t before = buffer_.size();
    buffer_.resize(before + size);
    ssize_t got = 0;
    do {
        got = ::read(input_, buffer_.data() + before, size);
    } while (got < 0 && errno == EINTR);
    buffer_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return got > 0;
}

bool Connection::readLine(std::string& line) {
    constexpr std::size_t mostLine = 65536;
    for (std::size_t from = 0;;) {
        const std::size_t end = buffer_.find('\n', used_ + from);
        if (end != std::string::npos || buffer_.size() - used_ > mostLine) {
            const std::size_t stop = end != std::string::npos ? end : buffer_.size();
            line = buffer_.substr(used_, stop - used_);
            used_ = end != std::string::npos ? stop + 1 : stop;
            if (line.ends_with('\r')) line.pop_back();
            return true;
        }
        from = buffer_.size() - used_;
        if (!fill()) return false;
    }
}

std::optional<std::string> Connection::readMessage() {
    std::optional<std::size_t> length;
    for (;;) {
        std::string line;
        if (!readLine(line)) return std::nullopt;
        if (line.empty()) {
            if (!length) continue;
            break;
        }
        constexpr std::string_view name = "content-length:";
        std::string lower = line.substr(0, name.size());
        std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
        if (lower != name) continue;
        const std::size_t first = std::min(line.find_first_not_of(' ', name.size()), line.size());
        std::size_t number = 0;
        const char* const end = line.data() + line.size();
        const auto read = std::from_chars(line.data() + first, end, number);
        if (read.ec == std::errc() && read.ptr == end) length = number;
    }
    std::string message;
    const bool isKept = *length <= mostBytesS;
    for (std::size_t left = *length; left > 0;) {
        if (used_ == buffer_.size() && !fill()) return std::nullopt;
        const std::size_t count = std::min(left, buffer_.size() - used_);
        if (isKept) message.append(buffer_, used_, count);
        used_ += count;
        left -= count;
    }
    return message;
}

void Connection::read() {
    while (auto message = readMessage()) {
        // Only these must be known before they have their turn.
        if (message->size() < 65'536 && message->find("$/cancelRequest") != std::string::npos) {
            if (methodOf(*message) == "$/cancelRequest") {
                const Json json = Json::parse(*message, nullptr, false);
                const Json params = json.value("params", Json());
                const std::lock_guard lock(mutex_);
                if (params.is_object() && cancelled_.size() < mostWaitingS) {
                    cancelled_.insert(textOf(params.value("id", Json())));
                }
                continue;
            }
        }
        // The client may keep its end open after this one.
        const bool isDebug = protocol_ == Protocol::Debug;
        const std::string last = isDebug ? "disconnect" : "exit";
        const bool isLast = message->size() < 1000 &&
                            message->find('"' + last + '"') != std::string::npos &&
                            methodOf(*message, isDebug ? "command" : "method") == last;
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [&] { return messages_.size() < mostWaitingS; });
        messages_.push_back(std::move(*message));
        arrived_.notify_all();
        if (isLast) break;
    }
    const std::lock_guard lock(mutex_);
    isAtEnd_ = true;
    arrived_.notify_all();
}

std::optional<Json> Connection::next() {
    for (;;) {
        std::string text;
        {
            std::unique_lock lock(mutex_);
            arrived_.wait(lock, [&] { return isAtEnd_ || !messages_.empty(); });
            if (messages_.empty()) return std::nullopt;
            text = std::move(messages_.front());
            messages_.pop_front();
            arrived_.notify_all();
        }
        constexpr std::size_t mostDepth = 200;
        const bool isDeep = depthOf(text) > mostDepth;
        Json json = isDeep ? Json() : Json::parse(text, nullptr, false);
        if (!isDeep && !json.is_discarded()) return json;
        if (protocol_ == Protocol::Debug) return Json();
        fail(nullptr, ParseError,
             isDeep ? "the message is nested too deep" : "the message is no JSON");
    }
}

bool Connection::wasCancelled(const Json& id) {
    const std::lock_guard lock(mutex_);
    return cancelled_.erase(textOf(id)) > 0;
}

void Connection::reply(const Json& id, Json result) {
    send({{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

void Connection::fail(const Json& id, Error code, const std::string& message) {
    send({{"jsonrpc", "2.0"},
          {"id", id},
          {"error", {{"code", static_cast<int>(code)}, {"message", message}}}});
}

void Connection::notify(const std::string& method, Json params) {
    send({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}});
}

void Connection::replyWritten(const Json& id, const std::string& result) {
    const std::string body =
        R"({"jsonrpc":"2.0","id":)" + textOf(id) + R"(,"result":)" + result + '}';
    if (sink_) {
        sink_(Json::parse(body));
    } else {
        sendText(body);
    }
}

void Connection::send(const Json& message) {
    if (sink_) {
        sink_(message);
    } else {
        sendText(textOf(message));
    }
}

void Connection::sendText(const std::string& body) {
    const std::string text = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    const std::lock_guard lock(outputMutex_);
    for (std::string_view rest = text; !rest.empty();) {
        const ssize_t count = ::write(output_, rest.data(), rest.size());
        if (count < 0 && errno == EAGAIN) {
            pollfd output{output_, POLLOUT, 0};
            ::poll(&output, 1, -1);
        } else if (count < 0 && errno != EINTR) {
            return;  // nobody reads it; the end of the input follows
        }
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

}  // namespace Author
