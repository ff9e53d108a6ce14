#pragma once

#include "connector/PluginHost.hpp"
#include "connector/message_service/Broker.hpp"
#include "cppmicroservices/Framework.hpp"
#include "foundation/concurrent/threadpool/WorkerPool.hpp"
#include "server/app/Options.hpp"
#include "server/http/HttpServer.hpp"
#include "server/metrics/Metrics.hpp"
#include "server/output/TextGate.hpp"
#include "yvm/YVM.hpp"

#include <chrono>
#include <memory>
#include <string>

namespace server::app {

/// The composition root: broker, service framework, plug-ins, the engine as a service, and the server
/// in front of them.
///
/// Life: constructed (everything but the engine stands, the port is bound), `start` with the engine,
/// `stopAccepting`, `waitForAnswers`, `stop`. One per process at a time, since plug-ins reach broker and
/// framework through the process.
class Application {
  public:
    /// Throws `std::runtime_error` with one line: a plug-in or folder that is missing or broken, a port
    /// that is taken.
    explicit Application(const Options& options);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// Makes the engine known to the plug-ins, and opens the doors.
    void start(std::shared_ptr<yvm::YVM> engine);

    /// Where the engine tells of its commands. May outlive this instance.
    const std::shared_ptr<metrics::Metrics>& metrics() const { return metrics_; }

    /// What holds writers of text back while sessions are behind: for the engine. May outlive this instance.
    const std::shared_ptr<output::TextGate>& textGate() const { return textGate_; }

    /// "http://<host>:<port>/", with "?token=...", percent-encoded, where one is asked for.
    std::string address() const;

    /// Takes no more requests.
    void stopAccepting();
    /// Waits until all that were taken are answered. False when that takes longer than `bound`.
    bool waitForAnswers(std::chrono::milliseconds bound) const;
    /// Says goodbye to the clients. When the engine has stopped.
    void stop();

  private:
    /// Broker, framework and thread pool, which plug-ins reach through the process: installed and taken
    /// away again, also when the construction of the rest fails.
    class Foundations {
      public:
        explicit Foundations(const Options& options);
        ~Foundations();
        Foundations(const Foundations&) = delete;
        Foundations& operator=(const Foundations&) = delete;

        const std::shared_ptr<connector::message_service::Broker> broker;
        const std::shared_ptr<cppmicroservices::Framework> framework;
        const std::shared_ptr<foundation::concurrent::threadpool::WorkerPool> threadPool;
    };

    const Options options_;
    const std::shared_ptr<metrics::Metrics> metrics_ = std::make_shared<metrics::Metrics>();
    const Foundations foundations_;
    const std::shared_ptr<output::TextGate> textGate_;
    connector::PluginHost plugins_;
    // Last, so that it goes first: the sockets close before anything behind them.
    std::unique_ptr<http::HttpServer> server_;
};

}  // namespace server::app
