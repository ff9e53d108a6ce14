#pragma once

#include "cppmicroservices/BundleContext.hpp"

/// A service listener that ends with the scope, before what it captured goes.
class Listening {
  public:
    Listening(const cppmicroservices::BundleContext& context, cppmicroservices::ServiceListener listener,
              const std::string& filter = {})
        : context_(context), token_(context_.AddServiceListener(std::move(listener), filter)) {}
    ~Listening() {
        if (context_) {
            context_.RemoveListener(std::move(token_));
        }
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

  private:
    cppmicroservices::BundleContext context_;
    cppmicroservices::ListenerToken token_;
};
