#include "cppmicroservices/LDAPProp.hpp"

#include <string_view>

namespace cppmicroservices {

LDAPPropExpr LDAPProp::operator==(const std::string& value) const {
    std::string escaped;
    for (const char character : value) {
        if (std::string_view("()*\\").find(character) != std::string_view::npos) {
            escaped += '\\';
        }
        escaped += character;
    }
    return LDAPPropExpr("(" + name_ + "=" + escaped + ")");
}

}  // namespace cppmicroservices
