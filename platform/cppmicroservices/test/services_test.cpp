#include "Listening.hpp"
#include "cppmicroservices/Framework.hpp"
#include "cppmicroservices/GetBundleContext.hpp"
#include "cppmicroservices/ServiceException.hpp"
#include "cppmicroservices/ServiceObjects.hpp"
#include "testing/LogCapture.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace cppmicroservices;
using namespace std::chrono_literals;

CPPMICROSERVICES_INITIALIZE_BUNDLE(services_test);

namespace servicetest {

class Engine {
  public:
    virtual ~Engine() = default;
    virtual int number() const = 0;
};

class Named {
  public:
    virtual ~Named() = default;
    virtual std::string name() const = 0;
};

/// Two bases at different addresses, so that a wrong cast shows.
class Machine final : public Engine, public Named {
  public:
    explicit Machine(int number) : number_(number) {}
    int number() const override { return number_; }
    std::string name() const override { return "machine " + std::to_string(number_); }

  private:
    int number_;
};

class Services : public testing::Test {
  protected:
    void SetUp() override {
        framework_.Start();
        context_ = framework_.GetBundleContext();
    }

    ServiceRegistration registerEngine(int number, ServiceProperties properties = {}) {
        return context_.RegisterService<Engine>(std::make_shared<Machine>(number), std::move(properties));
    }

    Framework framework_;
    BundleContext context_;
};

/// The types of the events that a listener heard, in order.
struct Heard {
    std::vector<unsigned> types;
    ServiceListener listener() {
        return [this](const ServiceEvent& event) { types.push_back(event.GetType()); };
    }
};

std::string textOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

constexpr const char* invalidContext = "The bundle context is no longer valid";

TEST_F(Services, TheInterfaceIdIsTheQualifiedNameOfTheClass) {
    EXPECT_EQ(us_service_interface_iid<Engine>(), "servicetest::Engine");
    EXPECT_EQ(detail::GetDemangledName(typeid(Machine)), "servicetest::Machine");
    EXPECT_EQ(us_service_interface_iid<void>(), "");
}

TEST_F(Services, ARegisteredServiceIsFoundAndUsed) {
    const auto registration = registerEngine(7, {{"user-yvm", true}});
    const auto references = context_.GetServiceReferences<Engine>();
    ASSERT_EQ(references.size(), 1U);
    EXPECT_TRUE(references[0]);
    EXPECT_EQ(references[0].GetInterfaceId(), "servicetest::Engine");
    EXPECT_EQ(references[0].GetBundle(), framework_);
    EXPECT_EQ(references[0].GetProperty("USER-YVM"), Any(true));
    EXPECT_EQ(references[0].GetProperty("objectclass"), Any(foundation::json::Array{"servicetest::Engine"}));
    EXPECT_EQ(references[0].GetProperty("absent"), Any());
    EXPECT_EQ(context_.GetService(references[0])->number(), 7);
    EXPECT_EQ(registration.GetReference(), references[0]);
}

TEST_F(Services, LookupsFilterAndKeepTheOrderOfRegistration) {
    registerEngine(1, {{"kind", "a"}});
    registerEngine(2, {{"kind", "b"}});
    registerEngine(3, {{"kind", "a"}});
    const auto found = context_.GetServiceReferences<Engine>(LDAPFilter("(kind=a)"));
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(context_.GetService(found[0])->number(), 1);
    EXPECT_EQ(context_.GetService(found[1])->number(), 3);
    EXPECT_EQ(context_.GetServiceReferences("servicetest::Engine", "(kind=b)").size(), 1U);
    EXPECT_EQ(context_.GetServiceReferences("", "(kind=a)").size(), 2U);
    EXPECT_EQ(context_.GetServiceReferences("servicetest::Named").size(), 0U);
    EXPECT_EQ(context_.GetService(context_.GetServiceReference<Engine>())->number(), 1);
    EXPECT_FALSE(context_.GetServiceReference<Named>());
    EXPECT_THROW(context_.GetServiceReferences<Engine>("(kind"), std::invalid_argument);
}

TEST_F(Services, AServiceIsReachedThroughEachOfItsInterfaces) {
    const auto machine = std::make_shared<Machine>(4);
    context_.RegisterService({{"servicetest::Engine", std::shared_ptr<Engine>(machine)},
                              {"servicetest::Named", std::shared_ptr<Named>(machine)}});
    const ServiceReference<Named> named(context_.GetServiceReference<Engine>());
    ASSERT_TRUE(named);
    EXPECT_EQ(named.GetInterfaceId(), "servicetest::Named");
    EXPECT_EQ(context_.GetService(named)->name(), "machine 4");
}

TEST_F(Services, AReferenceToAnInterfaceThatTheServiceLacksIsInvalid) {
    registerEngine(1);
    const ServiceReferenceU untyped = context_.GetServiceReferences("servicetest::Engine").at(0);
    EXPECT_TRUE(untyped.IsConvertibleTo("servicetest::Engine"));
    EXPECT_FALSE(untyped.IsConvertibleTo("servicetest::Named"));
    const ServiceReference<Named> named(untyped);
    EXPECT_FALSE(named);
    EXPECT_EQ(named.GetInterfaceId(), "");
    EXPECT_EQ(context_.GetService(named), nullptr);
}

TEST_F(Services, AReferenceAssignedNullIsInvalid) {
    registerEngine(1);
    auto reference = context_.GetServiceReference<Engine>();
    reference = nullptr;
    EXPECT_FALSE(reference);
    EXPECT_FALSE(reference.GetBundle());
}

TEST_F(Services, TwoLookupsGiveIndependentOwners) {
    registerEngine(1);
    const auto reference = context_.GetServiceReference<Engine>();
    const auto first = context_.GetService(reference);
    const auto second = context_.GetService(reference);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(second.use_count(), 1);
}

TEST_F(Services, AServiceIsReleasedWhenTheLastOwnerGoes) {
    auto engine = std::make_shared<Machine>(1);
    const std::weak_ptr<Machine> watch = engine;
    auto registration = context_.RegisterService<Engine>(std::move(engine));
    auto held = context_.GetService(context_.GetServiceReference<Engine>());
    registration.Unregister();
    EXPECT_EQ(held->number(), 1);
    EXPECT_FALSE(watch.expired());
    held.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(Services, AnUnregisteredServiceIsGone) {
    auto registration = registerEngine(1);
    const auto reference = context_.GetServiceReference<Engine>();
    registration.Unregister();
    EXPECT_FALSE(registration);
    EXPECT_FALSE(reference);
    EXPECT_FALSE(reference.GetBundle());
    EXPECT_EQ(context_.GetService(reference), nullptr);
    EXPECT_TRUE(context_.GetServiceReferences<Engine>().empty());
    registration.Unregister();
}

TEST_F(Services, ATypeWithoutInterfaceIdIsRefused) {
    EXPECT_EQ(textOf([this] { context_.GetServiceReferences<void>(std::string()); }),
              "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
    EXPECT_THROW(context_.GetServiceReferences<void>(std::string()), ServiceException);
    EXPECT_THROW(context_.RegisterService({{"", std::make_shared<int>(1)}}), ServiceException);
}

TEST_F(Services, AnEmptyImplementationIsRefused) {
    EXPECT_EQ(textOf([this] { context_.RegisterService<Engine>(nullptr); }),
              "the implementation of the service 'servicetest::Engine' is empty");
    EXPECT_EQ(textOf([this] { context_.RegisterService(InterfaceMap()); }),
              "a service needs at least one interface");
}

TEST_F(Services, AnInvalidContextThrowsFromEveryOperation) {
    const auto reference = registerEngine(1).GetReference();
    auto token = context_.AddServiceListener([](const ServiceEvent&) {});
    framework_.Stop();
    BundleContext none;
    for (auto* context : {&context_, &none}) {
        EXPECT_FALSE(*context);
        EXPECT_EQ(textOf([&] { context->GetServiceReferences<Engine>(); }), invalidContext);
        EXPECT_EQ(textOf([&] { context->GetServiceReferences("x"); }), invalidContext);
        EXPECT_EQ(textOf([&] { context->GetService(reference); }), invalidContext);
        EXPECT_EQ(textOf([&] { ServiceObjectsBase(*context, reference); }), invalidContext);
        EXPECT_EQ(textOf([&] { (void)context->AddServiceListener([](const ServiceEvent&) {}); }),
                  invalidContext);
        EXPECT_EQ(textOf([&] { context->RemoveListener(std::move(token)); }), invalidContext);
        EXPECT_EQ(textOf([&] { context->RegisterService<Engine>(std::make_shared<Machine>(1)); }),
                  invalidContext);
        EXPECT_EQ(textOf([&] { context->InstallBundles("x"); }), invalidContext);
        EXPECT_EQ(textOf([&] { (void)context->GetBundle(); }), invalidContext);
        EXPECT_EQ(textOf([&] { (void)context->GetBundles(); }), invalidContext);
    }
}

TEST_F(Services, AModuleWithoutContextHasAnInvalidOne) {
    _us_set_bundle_context_instance_services_test(nullptr);
    EXPECT_FALSE(GetBundleContext());
    EXPECT_EQ(textOf([] { GetBundleContext().GetServiceReferences<Engine>(); }), invalidContext);
}

TEST_F(Services, ATestMayHandTheContextToAModuleItLinks) {
    _us_set_bundle_context_instance_services_test(shareBundleContext(context_));
    EXPECT_EQ(GetBundleContext(), context_);
    framework_.Stop();
    EXPECT_FALSE(GetBundleContext());
    _us_set_bundle_context_instance_services_test(nullptr);
}

TEST_F(Services, StoppingTheFrameworkDropsItsServicesAndTellsListenersFirst) {
    Heard heard;
    const Listening token(context_, heard.listener());
    const auto reference = registerEngine(1).GetReference();
    framework_.Stop();
    EXPECT_FALSE(reference);
    EXPECT_EQ(heard.types, (std::vector<unsigned>{1, 4}));
    framework_.Stop();
    framework_.Start();
    EXPECT_TRUE(framework_.GetBundleContext());
    EXPECT_FALSE(context_);
}

TEST_F(Services, HandlesOutliveTheFramework) {
    std::optional<Framework> framework(std::in_place);
    framework->Start();
    BundleContext context = framework->GetBundleContext();
    auto registration = context.RegisterService<Engine>(std::make_shared<Machine>(1));
    const auto reference = context.GetServiceReference<Engine>();
    const Bundle bundle = context.GetBundle();
    framework.reset();
    EXPECT_FALSE(reference);
    EXPECT_FALSE(context);
    EXPECT_FALSE(bundle.IsStarted());
    EXPECT_EQ(bundle.GetSymbolicName(), "system_bundle");
    registration.Unregister();
    EXPECT_THROW(registration.SetProperties({}), std::logic_error);
    EXPECT_EQ(textOf([&] { context.GetServiceReferences<Engine>(); }), invalidContext);
}

TEST_F(Services, TheFrameworkIsNotStartedOrStoppedAsABundle) {
    Bundle bundle = context_.GetBundle();
    EXPECT_THROW(bundle.Stop(), std::logic_error);
    EXPECT_THROW(bundle.Start(), std::logic_error);
    EXPECT_TRUE(context_);
}

using Listeners = Services;

TEST_F(Listeners, HearTheirEventsByNumber) {
    Heard heard;
    const Listening token(context_, heard.listener(), "(kind=a)");
    auto registration = registerEngine(1, {{"kind", "a"}});
    registerEngine(2, {{"kind", "b"}});
    registration.SetProperties({{"kind", "a"}, {"more", 1}});
    registration.SetProperties({{"kind", "b"}});
    registration.SetProperties({{"kind", "c"}});
    registration.SetProperties({{"kind", "a"}});
    registration.Unregister();
    EXPECT_EQ(heard.types, (std::vector<unsigned>{1, 2, 8, 2, 4}));
}

TEST_F(Listeners, SeeTheServiceInLookupsBeforeItsRegisteredEventEnds) {
    std::size_t found = 0;
    bool sameReference = false;
    int number = 0;
    const Listening token(
        context_,
        [&](const ServiceEvent& event) {
            const auto references = context_.GetServiceReferences<Engine>("(user-yvm=true)");
            found = references.size();
            const ServiceReference<Engine> reference(event.GetServiceReference());
            sameReference = reference == references.at(0);
            number = reference.GetBundle().GetBundleContext().GetService(reference)->number();
        },
        "(&(objectClass=servicetest::Engine)(user-yvm=true))");
    registerEngine(9, {{"user-yvm", true}});
    EXPECT_EQ(found, 1U);
    EXPECT_TRUE(sameReference);
    EXPECT_EQ(number, 9);
}

TEST_F(Listeners, OfAFilterThatTheServiceFailsStaySilent) {
    Heard heard;
    const Listening token(context_, heard.listener(), "(&(objectClass=servicetest::Engine)(user-yvm=true))");
    registerEngine(1, {{"user-yvm", false}});
    registerEngine(2);
    EXPECT_TRUE(heard.types.empty());
}

TEST_F(Listeners, RunOnTheRegisteringThread) {
    std::thread::id heardOn;
    const Listening token(context_, [&](const ServiceEvent&) { heardOn = std::this_thread::get_id(); });
    std::thread::id registeredOn;
    std::thread([&] {
        registeredOn = std::this_thread::get_id();
        registerEngine(1);
    }).join();
    EXPECT_EQ(heardOn, registeredOn);
}

TEST_F(Listeners, MayRegisterAndUnregisterWhileTheyRun) {
    std::vector<unsigned> types;
    std::optional<ServiceRegistration> second;
    const Listening token(context_, [&](const ServiceEvent& event) {
        types.push_back(event.GetType());
        if (!second) {
            second.emplace();
            *second = registerEngine(2);
            second->Unregister();
        }
    });
    registerEngine(1);
    EXPECT_EQ(types, (std::vector<unsigned>{1, 1, 4}));
}

TEST_F(Listeners, HearAServiceThatIsStillValidWhileItUnregisters) {
    bool valid = false;
    int number = 0;
    auto registration = registerEngine(3);
    const Listening token(context_, [&](const ServiceEvent& event) {
        valid = static_cast<bool>(event.GetServiceReference());
        number = context_.GetService(ServiceReference<Engine>(event.GetServiceReference()))->number();
    });
    registration.Unregister();
    EXPECT_TRUE(valid);
    EXPECT_EQ(number, 3);
}

TEST_F(Listeners, MayRemoveThemselvesAndTheOthersOfTheEventStillRun) {
    ListenerToken own;
    int calls = 0;
    own = context_.AddServiceListener([&](const ServiceEvent&) {
        ++calls;
        context_.RemoveListener(std::move(own));
    });
    Heard other;
    const Listening token(context_, other.listener());
    registerEngine(1);
    registerEngine(2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(other.types.size(), 2U);
}

TEST_F(Listeners, RemovedByAnEarlierOneDoNotRunForThatEvent) {
    ListenerToken later;
    const Listening first(context_, [&](const ServiceEvent&) { context_.RemoveListener(std::move(later)); });
    Heard heard;
    later = context_.AddServiceListener(heard.listener());
    registerEngine(1);
    EXPECT_TRUE(heard.types.empty());
}

TEST_F(Listeners, RemovingAnEmptyMovedOutOrForgottenTokenDoesNothing) {
    Heard heard;
    auto token = context_.AddServiceListener(heard.listener());
    auto movedTo = std::move(token);
    context_.RemoveListener(std::move(token));  // NOLINT(bugprone-use-after-move): the case under test
    context_.RemoveListener(ListenerToken());
    registerEngine(1);
    EXPECT_EQ(heard.types.size(), 1U);
    const auto id = movedTo.id();
    context_.RemoveListener(std::move(movedTo));
    EXPECT_FALSE(movedTo);                        // NOLINT(bugprone-use-after-move): the case under test
    context_.RemoveListener(std::move(movedTo));  // NOLINT(bugprone-use-after-move)
    context_.RemoveListener(ListenerToken(id));
    registerEngine(2);
    EXPECT_EQ(heard.types.size(), 1U);
}

TEST_F(Listeners, ThatThrowAreLoggedAndStopNobody) {
    const platform_testing::LogCapture log;
    const Listening bad(context_, [](const ServiceEvent&) { throw std::runtime_error("listener broke"); });
    Heard heard;
    const Listening good(context_, heard.listener());
    registerEngine(1);
    EXPECT_EQ(heard.types.size(), 1U);
    const auto texts = log.texts("cppmicroservices::Framework", 16);
    ASSERT_EQ(texts.size(), 1U);
    EXPECT_EQ(texts[0].find("a service listener failed: "), 0U);
    EXPECT_NE(texts[0].find("listener broke"), std::string::npos);
}

TEST_F(Listeners, WithABadFilterAreRefused) {
    EXPECT_THROW((void)context_.AddServiceListener([](const ServiceEvent&) {}, "(a=b"),
                 std::invalid_argument);
}

TEST_F(Listeners, RemovalWaitsForACallOnAnotherThread) {
    std::promise<void> entered;
    std::promise<void> leave;
    auto mayLeave = leave.get_future().share();
    std::atomic<bool> left{false};
    auto token = context_.AddServiceListener([&](const ServiceEvent&) {
        entered.set_value();
        mayLeave.wait();
        left = true;
    });
    std::thread registrar([&] { registerEngine(1); });
    entered.get_future().wait();
    std::promise<void> removing;
    auto removed = std::async(std::launch::async, [&] {
        removing.set_value();
        context_.RemoveListener(std::move(token));
        return left.load();
    });
    removing.get_future().wait();
    leave.set_value();
    ASSERT_EQ(removed.wait_for(60s), std::future_status::ready);
    EXPECT_TRUE(removed.get());
    registrar.join();
}

TEST_F(Listeners, RemovalFromWithinOneDoesNotWaitForTheOther) {
    // Two listeners that run on two threads and remove each other: neither may wait.
    ListenerToken first;
    ListenerToken second;
    std::promise<void> firstEntered;
    std::promise<void> secondEntered;
    auto firstIn = firstEntered.get_future().share();
    auto secondIn = secondEntered.get_future().share();
    first = context_.AddServiceListener(
        [&](const ServiceEvent&) {
            firstEntered.set_value();
            secondIn.wait();
            context_.RemoveListener(std::move(second));
        },
        "(which=1)");
    second = context_.AddServiceListener(
        [&](const ServiceEvent&) {
            secondEntered.set_value();
            firstIn.wait();
            context_.RemoveListener(std::move(first));
        },
        "(which=2)");
    auto one = std::async(std::launch::async, [&] { registerEngine(1, {{"which", 1}}); });
    auto two = std::async(std::launch::async, [&] { registerEngine(2, {{"which", 2}}); });
    ASSERT_EQ(one.wait_for(60s), std::future_status::ready);
    ASSERT_EQ(two.wait_for(60s), std::future_status::ready);
}

TEST_F(Listeners, NoCallStartsOnceRemovalHasReturned) {
    for (int turn = 0; turn < 200; ++turn) {
        auto captured = std::make_unique<std::atomic<int>>(0);
        std::atomic<bool> gone{false};
        std::atomic<bool> calledTooLate{false};
        auto token = context_.AddServiceListener([&, raw = captured.get()](const ServiceEvent&) {
            if (gone) {
                calledTooLate = true;
            } else {
                ++*raw;
            }
        });
        std::thread registrar([&] { registerEngine(turn).Unregister(); });
        context_.RemoveListener(std::move(token));
        gone = true;
        captured.reset();
        registrar.join();
        ASSERT_FALSE(calledTooLate);
    }
}

TEST_F(Services, ManyThreadsRegisterAndLookUp) {
    std::vector<std::thread> threads;
    std::atomic<int> heard{0};
    const Listening token(context_, [&](const ServiceEvent&) { ++heard; });
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            for (int turn = 0; turn < 100; ++turn) {
                auto registration = registerEngine(thread, {{"thread", thread}});
                const auto filter = LDAPFilter("(thread=" + std::to_string(thread) + ")");
                const auto reference = context_.GetServiceReference<Engine>(filter);
                ASSERT_EQ(context_.GetService(reference)->number(), thread);
                registration.Unregister();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(heard, 800);
    EXPECT_TRUE(context_.GetServiceReferences<Engine>().empty());
}

}  // namespace servicetest
