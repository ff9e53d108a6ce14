#pragma once

#include "server/metrics/Metrics.hpp"

#include <memory>

namespace server::http {

/// Counts a connection among the open ones while it lives. Keeps the metrics alive: connections may be the
/// last that goes.
class OpenConnection {
  public:
    OpenConnection(std::shared_ptr<metrics::Metrics> metrics, metrics::Transport transport)
        : metrics_(std::move(metrics)), transport_(transport) {
        metrics_->connections.add(transport_);
    }
    ~OpenConnection() { metrics_->connections.subtract(transport_); }
    OpenConnection(const OpenConnection&) = delete;
    OpenConnection& operator=(const OpenConnection&) = delete;

  private:
    const std::shared_ptr<metrics::Metrics> metrics_;
    const metrics::Transport transport_;
};

}  // namespace server::http
