#include "foundation/msg_svc/eventmgr/BaseEvent.hpp"

#include <stdexcept>

namespace foundation::msg_svc::eventmgr {

BaseEvent::~BaseEvent() = default;

const TypeInformation& BaseEvent::getTypeInformation() const {
    return DerivedTypeInformation<BaseEvent>::shared();
}

const std::vector<std::u16string>& BaseEvent::getStaticTags() const {
    return getTypeInformation().getStaticTags();
}

bool BaseEvent::isKindOf(std::u16string_view name) const {
    return getTypeInformation().isKindOf(name);
}

std::optional<exchange::IDType> BaseEvent::commandId() const {
    return std::nullopt;
}

void BaseEvent::addUserTags(std::span<const std::u16string> tags) {
    getTypeInformation().checkUserTags(tags);
    userTags_.insert(userTags_.end(), tags.begin(), tags.end());
}

DerivedTypeInformation<BaseEvent>::DerivedTypeInformation()
    : TypeInformation(typeid(BaseEvent), nullptr, BaseEvent::acceptsUserTags) {}

const TypeInformation& DerivedTypeInformation<BaseEvent>::getBaseType() const {
    throw std::out_of_range("eventmgr::BaseEvent has no base types.");
}

const DerivedTypeInformation<BaseEvent>& DerivedTypeInformation<BaseEvent>::shared() {
    static const auto& information = *new DerivedTypeInformation;
    return information;
}

}  // namespace foundation::msg_svc::eventmgr
