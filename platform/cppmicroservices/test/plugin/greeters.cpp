#include "Greeting.hpp"
#include "cppmicroservices/Bundle.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/service/component/detail/ComponentInstanceImpl.hpp"

CPPMICROSERVICES_INITIALIZE_BUNDLE(com_yorworks_GreetingTest);

namespace plugintest {
namespace {

/// Tells the test's journal, if there is one, of a component's life.
class Member {
  public:
    explicit Member(std::string name) : name_(std::move(name)) {
        const auto context = cppmicroservices::GetBundleContext();
        if (const auto reference = context.GetServiceReference<Journal>()) {
            journal_ = context.GetService(reference);
            journal_->created(name_, context.GetBundle().GetSymbolicName());
        }
    }
    ~Member() {
        if (journal_ != nullptr) {
            journal_->deleted(name_);
        }
    }

  private:
    std::string name_;
    std::shared_ptr<Journal> journal_;
};

}  // namespace

class Greeter final : public Greeting {
  public:
    std::string greet() const override { return "good day"; }

  private:
    Member member_{"Greeter"};
};

class Second final : public Greeting {
  public:
    std::string greet() const override { return "good night"; }

  private:
    Member member_{"Second"};
};

class LateGreeter final : public Greeting {
  public:
    std::string greet() const override { return "good evening"; }

  private:
    Member member_{"LateGreeter"};
};

/// Exported by name, for tests that load the plug-in.
[[gnu::visibility("default")]] int numberOfGreeters();
int numberOfGreeters() {
    return 3;
}

}  // namespace plugintest

CPPMICROSERVICES_EXPORT_COMPONENT(plugintest_Greeter, plugintest::Greeter, plugintest::Greeting);
CPPMICROSERVICES_EXPORT_COMPONENT(plugintest_Second, plugintest::Second, plugintest::Greeting);
CPPMICROSERVICES_EXPORT_COMPONENT(plugintest_LateGreeter, plugintest::LateGreeter, plugintest::Greeting);
