#include "cppmicroservices/detail/SharedLibrary.hpp"

#include <dlfcn.h>

#include <stdexcept>

namespace cppmicroservices::detail {

SharedLibrary::SharedLibrary(const std::filesystem::path& file)
    : file_(file.string()), handle_(::dlopen(file_.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) {
        throw std::runtime_error("cannot load the bundle '" + file_ + "': " + ::dlerror());
    }
}

void* SharedLibrary::symbol(const std::string& name) const {
    void* const found = ::dlsym(handle_, name.c_str());
    if (found == nullptr) {
        throw std::runtime_error("cannot use the bundle '" + file_ + "': it does not export the function '" +
                                 name + "'");
    }
    return found;
}

}  // namespace cppmicroservices::detail
