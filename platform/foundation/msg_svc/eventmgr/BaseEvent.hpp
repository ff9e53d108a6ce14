#pragma once

#include "foundation/msg_svc/eventmgr/TypeInformation.hpp"
#include "foundation/msg_svc/exchange/IDType.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::msg_svc::eventmgr {

/// The root of the engine's events. An event is made, given its user tags if any, and from its
/// delivery on only read, by any number of threads.
///
/// An event class derives through `DerivedEvent`:
///
///     class PromptEvent final : public DerivedEvent<PromptEvent> { ... };
class [[gnu::visibility("default")]] BaseEvent {
  public:
    static constexpr bool acceptsUserTags = true;

    virtual ~BaseEvent();

    virtual const TypeInformation& getTypeInformation() const;

    /// The names of the event's class and of its bases, listed base to derived.
    virtual const std::vector<std::u16string>& getStaticTags() const;

    /// Whether `name` is among the static tags; user tags do not count.
    virtual bool isKindOf(std::u16string_view name) const;

    /// The command that this event belongs to, if it belongs to one: a dispatch asks the
    /// callbacks of that command first.
    virtual std::optional<exchange::IDType> commandId() const;

    const std::vector<std::u16string>& getUserTags() const noexcept { return userTags_; }

    /// Tags of the maker's choice, by which subscribers find the event as they do by its class.
    /// Throws `std::logic_error` "cannot add user tags." where `TypeInformation::addUserTags` does.
    void addUserTags(std::span<const std::u16string> tags);

  protected:
    BaseEvent() = default;
    BaseEvent(const BaseEvent&) = default;
    BaseEvent& operator=(const BaseEvent&) = default;

  private:
    std::vector<std::u16string> userTags_;
};

/// The root: it has no base, and it accepts user tags.
template <>
class [[gnu::visibility("default")]] DerivedTypeInformation<BaseEvent> final : public TypeInformation {
  public:
    DerivedTypeInformation();

    [[noreturn]] const TypeInformation& getBaseType() const override;

    static const DerivedTypeInformation& shared();
};

/// Gives the event class `Self`, derived from `Base`, its type information. A class whose events may
/// carry user tags declares `static constexpr bool acceptsUserTags = true;` itself.
template <typename Self, typename Base = BaseEvent>
class DerivedEvent : public Base {
  public:
    using BaseType = Base;
    static constexpr bool acceptsUserTags = false;

    const TypeInformation& getTypeInformation() const override {
        return DerivedTypeInformation<Self>::shared();
    }

  protected:
    using Base::Base;
};

}  // namespace foundation::msg_svc::eventmgr
