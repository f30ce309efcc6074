// Speaks with `kestrel debug --dap` as an editor does, by the transcript in debug.txt.
#include <sys/stat.h>

#include "Program.h"

namespace {

using Harness::Json;

class DebugClient final : public Harness::Program {
public:
    DebugClient() : Program({"debug", "--dap"}) {}

    int send(const std::string& command, const Json& arguments) {
        write(framed(Json{
            {"seq", ++last_}, {"type", "request"}, {"command", command}, {"arguments", arguments}}
                         .dump()));
        return last_;
    }
    /// The body, or the message of a failure.
    Json answer(int request) {
        const Json found = waitFor(
            [&](const Json& message) { return message.value("request_seq", 0) == request; });
        return found.value("success", false) ? found["body"] : found.value("message", Json());
    }
    Json request(const std::string& command, const Json& arguments) {
        return answer(send(command, arguments));
    }
    Json event(const std::string& name, const Json& expected) {
        return waitFor([&](const Json& message) {
                   return message.value("event", "") == name &&
                          Harness::fits(expected, message["body"]);
               })
            .value("body", Json());
    }

    /// The output that was told last before the event `name`, which has not been told yet.
    Json lastOutputBefore(const std::string& name) {
        Json output;
        waitFor([&](const Json& message) {
            const std::string event = message.value("event", "");
            if (event == "output") output = message["body"];
            return event == name;
        });
        return output;
    }

private:
    int last_ = 0;
};

class DebugTest : public testing::Test {
protected:
    Json perform(std::istringstream& words, const std::string& action, const std::string& block) {
        std::string name;
        words >> name;
        const Json json = Json::parse(block.empty() ? "{}" : block, nullptr, false);
        if (action == "file") {
            folder_.write(name, block);
        } else if (action == "start") {
            client_ = std::make_unique<DebugClient>();
            client_->request("initialize", {{"adapterID", "kestrel"}});
        } else if (action == "event") {
            return client_->event(name, json);
        } else if (action == "last") {
            return client_->lastOutputBefore(name);
        } else if (action == "pipe") {
            EXPECT_EQ(mkfifo((folder_.path() + "/" + name).c_str(), 0600), 0);
        } else if (action == "send") {
            sent_ = client_->send(name, json);
        } else if (action == "answer") {
            return client_->answer(sent_);
        } else if (action == "raw") {
            client_->write(DebugClient::framed(block));
        } else if (action == "close") {
            client_->hangUp();
        } else if (action == "exit") {
            return client_->wait();
        } else {
            return client_->request(action, json);
        }
        return {};
    }

    const Harness::Folder folder_;
    std::unique_ptr<DebugClient> client_;
    int sent_ = 0;
};

TEST_F(DebugTest, AnswersAsInTheTranscript) {
    const int answers =
        Harness::follow(KESTREL_TEST_DATA "/debug.txt", folder_.path(),
                        [&](std::istringstream& words, const std::string& action,
                            const std::string& block) { return perform(words, action, block); });
    EXPECT_GT(answers, 30);
}

}  // namespace
