#pragma once

#include "connector/message_service/Broker.hpp"
#include "cppmicroservices/Framework.hpp"

#include <filesystem>
#include <memory>
#include <vector>

namespace connector {

/// Brings the plug-ins of a folder into the process, each loaded only when somebody needs it.
///
/// A component whose manifest names start triggers is activated by the first message that matches one
/// of them. That message and what came behind it wait meanwhile and are then delivered in order. If
/// the start fails, that is logged, those messages reach no part of the plug-in, and the next message
/// tries again; see `Broker::addStartTrigger`.
class PluginHost {
  public:
    /// `framework` is started, and is kept alive by this object only: a message that comes after the
    /// framework has gone starts nothing.
    PluginHost(std::shared_ptr<cppmicroservices::Framework> framework,
               std::shared_ptr<message_service::Broker> broker);

    /// Installs and starts every file that ends in ".so" below `folder`, at any depth, in the order of
    /// their paths, and hands the start triggers of their deferred components to the broker. Only a
    /// plug-in that has a component without triggers is loaded at once.
    ///
    /// Returns the bundles; none for an empty folder. Throws `std::runtime_error` that names the folder
    /// if there is none, and the file if a plug-in is broken; no trigger has been set then. Called once
    /// for a folder.
    std::vector<cppmicroservices::Bundle> installFolder(const std::filesystem::path& folder);

  private:
    std::shared_ptr<cppmicroservices::Framework> framework_;
    std::shared_ptr<message_service::Broker> broker_;
};

}  // namespace connector
