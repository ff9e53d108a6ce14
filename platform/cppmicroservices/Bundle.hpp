#pragma once

#include "cppmicroservices/BundleContext.hpp"
#include "foundation/json/Value.hpp"

#include <filesystem>
#include <memory>
#include <string>

namespace cppmicroservices {

class BundlePrivate;

/// A plug-in as the framework knows it, or the framework itself.
///
/// Life: installed (its manifest is read), started (its components stand, except the deferred ones), stopped.
/// The library is loaded by the first component that is made, and stays loaded. A handle may outlive the
/// framework; then it is like that of a stopped bundle. Safe for use from any thread.
class Bundle {
  public:
    /// An invalid bundle.
    Bundle() = default;
    /// The framework makes these.
    explicit Bundle(std::shared_ptr<BundlePrivate> d) : d_(std::move(d)) {}

    explicit operator bool() const noexcept { return d_ != nullptr; }

    /// The context; an invalid one unless the bundle is started.
    BundleContext GetBundleContext() const;

    /// For example "com_yorworks_YVMAdapter"; "system_bundle" for the framework, empty for an invalid bundle.
    const std::string& GetSymbolicName() const noexcept;

    /// The manifest as it stands in the plug-in; empty for the framework.
    const foundation::json::Object& GetManifest() const noexcept;

    /// The plug-in's file; empty for the framework.
    const std::filesystem::path& GetLocation() const noexcept;

    bool IsStarted() const noexcept;

    /// Whether the plug-in's library was loaded by this framework.
    bool IsLoaded() const noexcept;

    /// Makes the components that are not deferred, in the order of the manifest, and registers their
    /// services. Nothing happens if the bundle is started. If one fails, those before it are undone and its
    /// exception leaves, or a `std::runtime_error` that names the file and what is missing in it.
    void Start();

    /// Unregisters the services and deletes the components, last made first, then makes the context invalid.
    /// Nothing happens if the bundle is not started.
    void Stop();

    bool operator==(const Bundle& other) const noexcept { return d_ == other.d_; }

  protected:
    friend class Framework;

    std::shared_ptr<BundlePrivate> d_;
};

}  // namespace cppmicroservices
