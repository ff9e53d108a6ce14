#pragma once

#include <filesystem>
#include <string>

namespace cppmicroservices::detail {

/// A plug-in that was loaded. It is never unloaded: threads, continuations and exceptions may still hold what
/// it defines.
class SharedLibrary {
  public:
    /// Resolves every symbol at once and keeps the plug-in's own symbols to itself. Throws
    /// `std::runtime_error` that names the file and gives the loader's reason.
    explicit SharedLibrary(const std::filesystem::path& file);

    /// The exported function of that name. Throws `std::runtime_error` that names file and function.
    template <typename Function>
    Function* function(const std::string& name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

  private:
    void* symbol(const std::string& name) const;

    std::string file_;
    void* handle_;
};

}  // namespace cppmicroservices::detail
