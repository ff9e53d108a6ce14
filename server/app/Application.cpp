#include "server/app/Application.hpp"

#include "connector/message_service/MessageService.hpp"
#include "foundation/cppmicroservices/framework.hpp"
#include "foundation/feature/IFeature.hpp"
#include "foundation/log/basic_diagnostic_logger.hpp"
#include "foundation/log/sinks.hpp"

#include <stdexcept>

namespace server::app {

namespace {

using connector::message_service::MessageService;
using connector::message_service::MessageServiceOptions;
using foundation::concurrent::threadpool::ThreadPool;
using foundation::concurrent::threadpool::WorkerPool;

/// How long clients may take to read the last that was sent to them.
constexpr std::chrono::seconds kGoodbye{2};

/// As the value of a query parameter: what could end it, or mean something else there, is escaped.
std::string percentEncoded(std::string_view text) {
    constexpr std::string_view kUnreserved =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        if (kUnreserved.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', kHex[byte >> 4U], kHex[byte & 15U]};
        }
    }
    return encoded;
}

void openLog(const Options& options) {
    if (options.logFile) {
        foundation::log::addFileSink(*options.logFile);
    } else {
        foundation::log::addConsoleSink();
    }
    foundation::log::setDefaultMask(options.logMask);
    foundation::log::setLoggingEnabled(options.logMask != 0);
}

http::HttpServer::Options serverOptions(const Options& options) {
    http::HttpServer::Options result;
    result.host = options.host;
    result.port = options.port;
    result.guard = {options.token, options.allowedOrigins};
    if (options.consoleFolder) {
        result.files = http::StaticFiles(*options.consoleFolder);
    }
    result.limits = options.limits;
    result.maxConnections = options.maxConnections;
    result.connectTimeout = options.connectTimeout;
    result.graceTime = options.graceTime;
    return result;
}

/// In shares of what may wait for a session. A unit becomes six bytes at most, and all that was not published
/// leaves in one message, which has to fit in beside what the high water lets pass.
output::TextGate::Options gateOptions(const Options& options) {
    const std::size_t maxQueueBytes = options.limits.maxQueueBytes;
    output::TextGate::Options result;
    result.highWater = maxQueueBytes / 4;
    result.lowWater = maxQueueBytes / 8;
    result.maxUnpublished = maxQueueBytes / 16;
    result.maxWait = options.maxOutputWait;
    return result;
}

}  // namespace

Application::Foundations::Foundations(const Options& options)
    : broker(connector::message_service::Broker::create()),
      framework(std::make_shared<cppmicroservices::Framework>()),
      threadPool(std::make_shared<WorkerPool>()) {
    openLog(options);
    for (const auto& [name, enabled] : options.features) {
        foundation::feature::IFeature::instance().set(name, enabled);
    }
    broker->start();
    connector::message_service::setMessageServiceFactory(
        [broker = broker](const std::string& name, const MessageServiceOptions&) {
            return connector::makeReadyFuture<std::shared_ptr<MessageService>>(broker->createService(name));
        });
    framework->Start();
    framework->GetBundleContext().RegisterService<ThreadPool>(threadPool);
    foundation::cppmicroservices::setFramework(framework);
}

Application::Foundations::~Foundations() {
    // Plug-ins end their subscriptions while they are taken down, so the broker goes last.
    framework->Stop();
    foundation::cppmicroservices::setFramework(nullptr);
    // A run in progress may hold the last reference to what a plug-in has let go, and publishes.
    threadPool->stop();
    connector::message_service::setMessageServiceFactory({});
    broker->stop();
}

Application::Application(const Options& options)
    : options_(options),
      foundations_(options_),
      textGate_(std::make_shared<output::TextGate>(gateOptions(options_), foundations_.threadPool)),
      plugins_(foundations_.framework, foundations_.broker) {
    plugins_.installFolder(options_.pluginFolder);
    if (foundations_.framework->deferredComponents().empty()) {
        throw std::runtime_error("no plug-in below '" + options_.pluginFolder.string() +
                                 "' serves any channel");
    }
    http::HttpServer::Options door = serverOptions(options_);
    door.metrics = metrics_;
    door.textGate = textGate_;
    server_ = std::make_unique<http::HttpServer>(foundations_.broker, std::move(door));
}

Application::~Application() = default;

void Application::start(std::shared_ptr<yvm::YVM> engine) {
    foundations_.framework->GetBundleContext().RegisterService<yvm::YVM>(
        std::move(engine), cppmicroservices::ServiceProperties{{"user-yvm", foundation::json::Value(true)}});
    server_->start();
}

std::string Application::address() const {
    const bool isIpv6 = options_.host.find(':') != std::string::npos;
    return "http://" + (isIpv6 ? "[" + options_.host + "]" : options_.host) + ":" +
           std::to_string(server_->port()) + "/" +
           (options_.token ? "?token=" + percentEncoded(*options_.token) : "");
}

void Application::stopAccepting() {
    server_->stopAccepting();
}

bool Application::waitForAnswers(std::chrono::milliseconds bound) const {
    return server_->waitForAnswers(bound);
}

void Application::stop() {
    server_->stop(kGoodbye);
}

}  // namespace server::app
