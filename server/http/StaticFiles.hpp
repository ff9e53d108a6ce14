#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace server::http {

/// The files of one folder, the web console, read into memory once.
///
/// A request can only name what was found then, so no path can lead out of the folder. Constant after
/// construction.
class StaticFiles {
  public:
    struct File {
        std::string body;
        std::string contentType;
        /// In quotes, as the header wants it.
        std::string etag;
        /// Whether its name changes with its content, so that it may be kept for ever.
        bool isImmutable = false;
    };

    StaticFiles() = default;

    /// Throws `std::runtime_error` when `folder` is no folder with an index.html, when a file cannot
    /// be read, or when all are more than 64 MiB.
    explicit StaticFiles(const std::filesystem::path& folder);

    /// The file of a request's target ("/" is "/index.html", a query is ignored), or null.
    const File* find(std::string_view target) const;

  private:
    std::map<std::string, File, std::less<>> files_;
};

}  // namespace server::http
