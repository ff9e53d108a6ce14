#include "cppmicroservices/detail/bundleResource.hpp"

#include <elf.h>
#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace cppmicroservices::detail {
namespace {

constexpr std::string_view sectionName = "US_RESOURCES";
constexpr std::string_view manifestName = "manifest.json";
/// Far above any manifest; keeps a damaged size field from asking for the whole memory.
constexpr std::uint64_t maxManifestBytes = 1 << 24;

std::string readFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error(std::string("cannot open it: ") + std::strerror(errno));
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The `size` bytes at `offset`; throws if the file has not that many.
std::string_view slice(std::string_view bytes, std::uint64_t offset, std::uint64_t size) {
    if (offset > bytes.size() || size > bytes.size() - offset) {
        throw std::runtime_error("the ELF file is damaged or cut off");
    }
    return bytes.substr(offset, size);
}

template <typename Struct>
Struct readStruct(std::string_view bytes, std::uint64_t offset) {
    static_assert(std::is_trivially_copyable_v<Struct>);
    Struct result;
    slice(bytes, offset, sizeof result).copy(reinterpret_cast<char*>(&result), sizeof result);
    return result;
}

std::string_view findSection(std::string_view elf) {
    if (!elf.starts_with(std::string_view(ELFMAG, SELFMAG))) {
        throw std::runtime_error("it is not an ELF file");
    }
    const auto header = readStruct<Elf64_Ehdr>(elf, 0);
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_shentsize != sizeof(Elf64_Shdr)) {
        throw std::runtime_error("it is not an ELF file of 64 bits and low byte first");
    }
    const auto section = [&](std::uint64_t index) {
        return readStruct<Elf64_Shdr>(elf, header.e_shoff + index * sizeof(Elf64_Shdr));
    };
    if (header.e_shnum != 0) {
        const auto nameTable = section(header.e_shstrndx);
        const auto names = slice(elf, nameTable.sh_offset, nameTable.sh_size);
        for (std::uint64_t index = 0; index < header.e_shnum; ++index) {
            const auto candidate = section(index);
            // The names end with NUL, and the table does.
            const auto name = slice(names, candidate.sh_name,
                                    names.size() - std::min<std::uint64_t>(candidate.sh_name, names.size()));
            if (name.substr(0, name.find('\0')) == sectionName && candidate.sh_type != SHT_NOBITS) {
                return slice(elf, candidate.sh_offset, candidate.sh_size);
            }
        }
    }
    throw std::runtime_error("it has no section '" + std::string(sectionName) +
                             "', which would hold its manifest");
}

class ZipError {
  public:
    ZipError() { zip_error_init(&error_); }
    ~ZipError() { zip_error_fini(&error_); }
    ZipError(const ZipError&) = delete;
    ZipError& operator=(const ZipError&) = delete;
    zip_error_t* get() noexcept { return &error_; }
    std::string text() { return zip_error_strerror(&error_); }

  private:
    zip_error_t error_;
};

using Archive = std::unique_ptr<zip_t, decltype(&zip_discard)>;

[[noreturn]] void failNoArchive(const std::string& reason) {
    throw std::runtime_error("the section '" + std::string(sectionName) +
                             "' is not a ZIP archive: " + reason);
}

/// The archive reads from `bytes`, which must outlive it.
Archive openArchive(std::string_view bytes) {
    ZipError error;
    zip_source_t* const source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, error.get());
    if (source == nullptr) {
        failNoArchive(error.text());
    }
    zip_t* const archive = zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, error.get());
    if (archive == nullptr) {
        zip_source_free(source);
        failNoArchive(error.text());
    }
    return {archive, &zip_discard};
}

}  // namespace

BundleResource readBundleResource(const std::filesystem::path& file) {
    const std::string elf = readFile(file);
    const auto archive = openArchive(findSection(elf));
    const auto entries = zip_get_num_entries(archive.get(), 0);
    for (zip_uint64_t index = 0; index < static_cast<zip_uint64_t>(entries); ++index) {
        zip_stat_t status;
        if (zip_stat_index(archive.get(), index, 0, &status) != 0) {
            failNoArchive(zip_strerror(archive.get()));
        }
        const std::string_view name = status.name;
        const auto slash = name.find('/');
        if (slash == 0 || slash == std::string_view::npos || name.substr(slash + 1) != manifestName) {
            continue;
        }
        if (status.size > maxManifestBytes) {
            throw std::runtime_error("its manifest is larger than " + std::to_string(maxManifestBytes) +
                                     " bytes");
        }
        const std::unique_ptr<zip_file_t, decltype(&zip_fclose)> entry(
            zip_fopen_index(archive.get(), index, 0), &zip_fclose);
        std::string text(status.size, '\0');
        if (entry == nullptr ||
            zip_fread(entry.get(), text.data(), text.size()) != static_cast<zip_int64_t>(text.size())) {
            throw std::runtime_error(
                "its manifest cannot be unpacked: " +
                std::string(entry == nullptr ? zip_strerror(archive.get()) : zip_file_strerror(entry.get())));
        }
        return {std::string(name.substr(0, slash)), std::move(text)};
    }
    throw std::runtime_error("its section '" + std::string(sectionName) + "' holds no '<symbolic name>/" +
                             std::string(manifestName) + "'");
}

}  // namespace cppmicroservices::detail
