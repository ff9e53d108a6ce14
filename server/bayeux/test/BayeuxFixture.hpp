#pragma once

#include "connector/message_service/Broker.hpp"
#include "server/bayeux/BayeuxServer.hpp"

#include <gtest/gtest.h>
#include <simdjson.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace server::bayeux::testing {

/// What a thread that only runs posted work looks like to the server; the test runs it by hand.
class WorkQueue {
  public:
    void post(std::function<void()> work) {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
        changed_.notify_all();
    }

    /// Runs what has been posted, until `done` holds. False when that takes more than a minute.
    bool runUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done()) {
            std::unique_lock lock(mutex_);
            if (!changed_.wait_until(lock, deadline, [this] { return !work_.empty(); })) {
                return false;
            }
            runOne(lock);
        }
        return true;
    }

    void runAll() {
        std::unique_lock lock(mutex_);
        while (!work_.empty()) {
            runOne(lock);
            lock.lock();
        }
    }

  private:
    void runOne(std::unique_lock<std::mutex>& lock) {
        const auto work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        work();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> work_;
};

/// A connection that records what it is told.
class FakeConnection final : public Connection {
  public:
    explicit FakeConnection(bool streaming = true, bool authenticated = true,
                            std::string address = "127.0.0.1")
        : Connection(std::move(address)), streaming_(streaming), authenticated_(authenticated) {}

    void send(FrameText frame) override {
        frames.push_back(frame.take());
        lastMayWait = false;
    }
    void sendSoon(FrameText frame) override {
        frames.push_back(frame.take());
        lastMayWait = true;
    }
    void close(CloseCode code, std::string reason) override {
        closeCode = code;
        closeReason = std::move(reason);
    }
    void supersede() override { superseded = true; }
    bool isWritable() const override { return writable; }
    bool isStreaming() const override { return streaming_; }
    bool isAuthenticated() const override { return authenticated_; }

    /// The frames so far, joined, which are taken.
    std::string take() {
        std::string all;
        for (const std::string& frame : frames) {
            all += frame;
        }
        frames.clear();
        return all;
    }

    std::vector<std::string> frames;
    /// Whether the last frame is one that nobody waits for.
    bool lastMayWait = false;
    std::optional<CloseCode> closeCode;
    std::string closeReason;
    bool superseded = false;
    bool writable = true;

  private:
    bool streaming_;
    bool authenticated_;
};

/// A server on a real broker, whose thread is the test's and whose clock the test moves.
class BayeuxFixture : public ::testing::Test {
  protected:
    BayeuxFixture() {
        broker->start();
        makeServer({});
    }

    ~BayeuxFixture() override {
        server.reset();
        broker->stop();
    }

    void makeServer(BayeuxServer::Options options) {
        options.post = [this](std::function<void()> work) { workQueue.post(std::move(work)); };
        options.now = [this] { return now; };
        server.reset();
        server = std::make_unique<BayeuxServer>(broker, std::move(options));
    }

    /// Hands in a frame and gives back what was sent in answer.
    std::string exchange(const std::shared_ptr<FakeConnection>& connection, std::string frame) {
        connection->take();
        server->receive(connection, frame);
        return connection->take();
    }

    /// A handshake and a first connect that is answered at once. Gives the client id.
    std::string openSession(const std::shared_ptr<FakeConnection>& connection) {
        const std::string reply = exchange(
            connection,
            R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["websocket"]}])");
        simdjson::dom::parser parser;
        const std::string clientId(std::string_view(parser.parse(reply).at(0)["clientId"]));
        exchange(connection, R"([{"channel":"/meta/connect","clientId":")" + clientId +
                                 R"(","connectionType":"websocket","advice":{"timeout":0}}])");
        return clientId;
    }

    std::string request(const std::string& clientId, const std::string& channel, const std::string& fields) {
        return R"([{"channel":")" + channel + R"(","clientId":")" + clientId + R"(","id":"7")" + fields +
               "}]";
    }

    std::string publish(const std::shared_ptr<FakeConnection>& connection, const std::string& clientId,
                        const std::string& channel, const std::string& data) {
        return exchange(connection, request(clientId, channel, R"(,"data":)" + data));
    }

    std::string subscribe(const std::shared_ptr<FakeConnection>& connection, const std::string& clientId,
                          const std::string& subscription) {
        return exchange(connection,
                        request(clientId, "/meta/subscribe", R"(,"subscription":)" + subscription));
    }

    /// Runs posted work until the connection has been sent something, and takes it.
    std::string await(FakeConnection& connection) {
        EXPECT_TRUE(workQueue.runUntil([&] { return !connection.frames.empty(); })) << "nothing was sent";
        return connection.take();
    }

    WorkQueue workQueue;
    Clock::time_point now = Clock::now();
    std::shared_ptr<connector::message_service::Broker> broker = connector::message_service::Broker::create();
    std::unique_ptr<BayeuxServer> server;
};

/// Answers attach and detach requests as the module does, and records them.
class FakeModule {
  public:
    explicit FakeModule(const std::shared_ptr<connector::message_service::Broker>& broker)
        : service_(broker->createService("fakeModule")) {
        subscribe("/yvm/attach/request", "/yvm/attach/response");
        subscribe("/yvm/detach/request", "/yvm/detach/response");
    }

    /// From now on attaches are answered with an error.
    void refuseAttaches() {
        const std::lock_guard lock(mutex_);
        refusing_ = true;
    }

    /// From now on attaches are answered with this version.
    void agreeOn(const std::string& apiVersion) {
        const std::lock_guard lock(mutex_);
        apiVersion_ = apiVersion;
    }

    /// From now on nothing is answered.
    void fallSilent() {
        const std::lock_guard lock(mutex_);
        silent_ = true;
    }

    std::vector<std::string> requests() const {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

    bool waitForRequests(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60), [&] { return requests_.size() >= count; });
    }

  private:
    void subscribe(const std::string& requestChannel, const std::string& responseChannel) {
        subscriptions_.push_back(
            service_
                ->subscribe(requestChannel,
                            [this, responseChannel](const connector::message_service::JsonMessage& message) {
                                answer(responseChannel, std::string(message.payload().view()));
                            })
                .get());
    }

    void answer(const std::string& responseChannel, const std::string& text) {
        simdjson::dom::parser parser;
        const std::string requestID(std::string_view(parser.parse(text)["requestID"]));
        std::string more;
        bool silent = false;
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(text);
            const bool isAttach = responseChannel == "/yvm/attach/response";
            if (isAttach && refusing_) {
                more = R"(,"error":{"status":5})";
            } else if (isAttach && !apiVersion_.empty()) {
                more = R"(,"apiVersion":")" + apiVersion_ + '"';
            }
            silent = silent_;
            changed_.notify_all();
        }
        if (!silent) {
            service_->publish(responseChannel, connector::common::DataBuffer(R"({"requestID":")" + requestID +
                                                                             '"' + more + "}"));
        }
    }

    std::shared_ptr<connector::message_service::MessageService> service_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool refusing_ = false;
    std::string apiVersion_;
    bool silent_ = false;
    std::vector<std::string> requests_;
    std::vector<std::shared_ptr<connector::message_service::Subscription>> subscriptions_;
};

}  // namespace server::bayeux::testing
