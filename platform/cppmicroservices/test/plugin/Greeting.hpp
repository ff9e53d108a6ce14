#pragma once

#include <string>

// The interfaces through which the tests and their plug-ins meet.
namespace plugintest {

/// Provided by the plug-ins' components.
class Greeting {
  public:
    virtual ~Greeting() = default;
    virtual std::string greet() const = 0;
};

/// Provided by a test that wants to hear of the components, and to have one fail.
class Journal {
  public:
    virtual ~Journal() = default;
    /// May throw; the exception leaves the component's constructor.
    virtual void created(const std::string& component, const std::string& bundleName) = 0;
    virtual void deleted(const std::string& component) noexcept = 0;
};

/// Named in a manifest but provided by no component.
class Unprovided {
  public:
    virtual ~Unprovided() = default;
};

}  // namespace plugintest
