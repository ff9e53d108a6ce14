#include "server/http/StaticFiles.hpp"

#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace server::http {

namespace {

constexpr std::size_t kMaxBytes = 64UL * 1024 * 1024;

std::string contentTypeOf(const std::filesystem::path& path) {
    static const std::map<std::string, std::string> types = {
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".json", "application/json"},
        {".map", "application/json"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".woff2", "font/woff2"},
        {".txt", "text/plain; charset=utf-8"},
    };
    const auto found = types.find(path.extension().string());
    return found == types.end() ? "application/octet-stream" : found->second;
}

std::string etagOf(const std::string& body) {
    std::ostringstream etag;
    etag << '"' << std::hex << body.size() << '-' << std::hash<std::string>{}(body) << '"';
    return etag.str();
}

}  // namespace

StaticFiles::StaticFiles(const std::filesystem::path& folder) {
    if (!std::filesystem::is_regular_file(folder / "index.html")) {
        throw std::runtime_error("the console folder '" + folder.string() + "' holds no index.html");
    }
    std::size_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        std::ifstream in(entry.path(), std::ios::binary);
        File file;
        file.body.assign(std::istreambuf_iterator<char>(in), {});
        bytes += file.body.size();
        if (!in || bytes > kMaxBytes) {
            throw std::runtime_error(in ? "the console folder '" + folder.string() +
                                              "' holds more than 64 MiB"
                                        : "cannot read '" + entry.path().string() + "'");
        }
        file.contentType = contentTypeOf(entry.path());
        file.etag = etagOf(file.body);
        const std::string name = "/" + std::filesystem::relative(entry.path(), folder).generic_string();
        // The console's build puts a hash of the content into the names of what it places here.
        file.isImmutable = name.starts_with("/assets/");
        files_.emplace(name, std::move(file));
    }
}

const StaticFiles::File* StaticFiles::find(std::string_view target) const {
    target = target.substr(0, target.find('?'));
    const auto found = files_.find(target == "/" ? std::string_view("/index.html") : target);
    return found == files_.end() ? nullptr : &found->second;
}

}  // namespace server::http
