#pragma once

#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

namespace foundation::msg_svc::eventmgr {

/// The form in which an event type is named in tags and in the properties of converters: the
/// qualified C++ name, for example "ylutil::io::TextBaseEvent".
///
/// Accepts that form (returned as it stands), the same behind "class " or "struct ", and the encoded
/// name of `std::type_info`. A text that is none of these is returned as it stands.
std::u16string demangleEventForType(const std::u16string& eventName);

/// What is known of one event type: its name, its place in the line of bases, and the tags by which
/// its events reach subscribers.
///
/// Copies are independent: user tags that are added to one do not show in another. Safe to read from
/// any number of threads.
class TypeInformation {
  public:
    virtual ~TypeInformation();

    const std::u16string& name() const noexcept { return staticTags_.back(); }

    /// The names of the type and of its bases, listed base to derived.
    const std::vector<std::u16string>& getStaticTags() const noexcept { return staticTags_; }
    const std::vector<std::u16string>& getUserTags() const noexcept { return userTags_; }
    bool isKindOf(std::u16string_view typeName) const noexcept;

    /// The information of the direct base. The root throws `std::out_of_range`
    /// "eventmgr::BaseEvent has no base types.".
    virtual const TypeInformation& getBaseType() const = 0;

    /// Adds the tags when there are none, when the type accepts user tags, or when each is among its
    /// static tags; otherwise throws `std::logic_error` "cannot add user tags." and adds none.
    void addUserTags(std::span<const std::u16string> tags);

    /// Throws as `addUserTags` would, and changes nothing.
    void checkUserTags(std::span<const std::u16string> tags) const;

  protected:
    /// `base` is null for the root.
    TypeInformation(const std::type_info& type, const TypeInformation* base, bool acceptsUserTags);
    TypeInformation(const TypeInformation&) = default;
    TypeInformation& operator=(const TypeInformation&) = default;

  private:
    std::vector<std::u16string> staticTags_;
    std::vector<std::u16string> userTags_;
    bool acceptsUserTags_;
};

/// The information of the event class `T`, which names its base as `T::BaseType` and says by
/// `T::acceptsUserTags` whether its events may carry tags of their maker's choice. `BaseEvent`, the
/// root, is specialised in BaseEvent.hpp.
template <typename T>
class DerivedTypeInformation final : public TypeInformation {
  public:
    DerivedTypeInformation() : TypeInformation(typeid(T), &base(), T::acceptsUserTags) {}

    const TypeInformation& getBaseType() const override { return base(); }

    /// The one that the events of this type share. Never destroyed: threads of users fire events until the
    /// process has ended.
    static const DerivedTypeInformation& shared() {
        static const auto& information = *new DerivedTypeInformation;
        return information;
    }

  private:
    static const TypeInformation& base() { return DerivedTypeInformation<typename T::BaseType>::shared(); }
};

}  // namespace foundation::msg_svc::eventmgr
