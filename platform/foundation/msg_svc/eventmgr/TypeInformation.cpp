#include "foundation/msg_svc/eventmgr/TypeInformation.hpp"

#include <boost/core/demangle.hpp>
#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace foundation::msg_svc::eventmgr {

namespace {

/// Names of C++ types are ASCII.
std::u16string widen(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

}  // namespace

std::u16string demangleEventForType(const std::u16string& eventName) {
    for (const std::u16string_view keyword : {u"class ", u"struct "}) {
        if (eventName.starts_with(keyword)) {
            return eventName.substr(keyword.size());
        }
    }
    // Encoded names of classes begin with 'N' (in a namespace) or with a digit. Others must not be
    // tried: an event that is called "i" is not an "int".
    const bool mayBeEncoded =
        !eventName.empty() &&
        (eventName.front() == u'N' || (eventName.front() >= u'0' && eventName.front() <= u'9'));
    if (!mayBeEncoded ||
        std::ranges::any_of(eventName, [](char16_t unit) { return unit == 0 || unit > 0x7e; })) {
        return eventName;
    }
    const std::string encoded(eventName.begin(), eventName.end());
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(encoded.c_str(), nullptr, nullptr, &status), &std::free);
    return name ? widen(name.get()) : eventName;
}

TypeInformation::TypeInformation(const std::type_info& type, const TypeInformation* base,
                                 bool acceptsUserTags)
    : acceptsUserTags_(acceptsUserTags) {
    if (base) {
        staticTags_ = base->getStaticTags();
    }
    staticTags_.push_back(widen(boost::core::demangle(type.name())));
}

TypeInformation::~TypeInformation() = default;

bool TypeInformation::isKindOf(std::u16string_view typeName) const noexcept {
    return std::ranges::find(staticTags_, typeName) != staticTags_.end();
}

void TypeInformation::checkUserTags(std::span<const std::u16string> tags) const {
    if (!acceptsUserTags_ && !std::ranges::all_of(tags, [this](const auto& tag) { return isKindOf(tag); })) {
        throw std::logic_error("cannot add user tags.");
    }
}

void TypeInformation::addUserTags(std::span<const std::u16string> tags) {
    checkUserTags(tags);
    userTags_.insert(userTags_.end(), tags.begin(), tags.end());
}

}  // namespace foundation::msg_svc::eventmgr
