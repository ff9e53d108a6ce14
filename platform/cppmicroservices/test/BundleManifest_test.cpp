#include "cppmicroservices/detail/BundleManifest.hpp"

#include <elf.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zip.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

using cppmicroservices::detail::readBundleManifest;

namespace {

/// A ZIP archive with one deflated entry.
std::string zipOf(const std::string& name, const std::string& content) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* const target = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_source_keep(target);
    zip_t* const archive = zip_open_from_source(target, ZIP_CREATE | ZIP_TRUNCATE, &error);
    zip_source_t* const entry = zip_source_buffer(archive, content.data(), content.size(), 0);
    EXPECT_GE(zip_file_add(archive, name.c_str(), entry, ZIP_FL_OVERWRITE), 0);
    EXPECT_EQ(zip_close(archive), 0);
    zip_source_open(target);
    zip_source_seek(target, 0, SEEK_END);
    std::string bytes(static_cast<std::size_t>(zip_source_tell(target)), '\0');
    zip_source_seek(target, 0, SEEK_SET);
    EXPECT_EQ(zip_source_read(target, bytes.data(), bytes.size()), static_cast<zip_int64_t>(bytes.size()));
    zip_source_close(target);
    zip_source_free(target);
    zip_error_fini(&error);
    return bytes;
}

template <typename Struct>
std::string bytesOf(const Struct& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// The smallest ELF file with one section of that name.
std::string elfOf(const std::string& sectionName, const std::string& content) {
    const std::string names = std::string("\0.shstrtab\0", 11) + sectionName + '\0';
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_type = ET_DYN;
    header.e_shoff = sizeof header + content.size() + names.size();
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = 3;
    header.e_shstrndx = 1;
    Elf64_Shdr nameTable{};
    nameTable.sh_name = 1;
    nameTable.sh_type = SHT_STRTAB;
    nameTable.sh_offset = sizeof header + content.size();
    nameTable.sh_size = names.size();
    Elf64_Shdr section{};
    section.sh_name = 11;
    section.sh_type = SHT_PROGBITS;
    section.sh_offset = sizeof header;
    section.sh_size = content.size();
    return bytesOf(header) + content + names + bytesOf(Elf64_Shdr{}) + bytesOf(nameTable) + bytesOf(section);
}

class BundleManifest : public testing::Test {
  protected:
    void TearDown() override { std::filesystem::remove(file_); }

    void write(const std::string& bytes) { std::ofstream(file_, std::ios::binary) << bytes; }

    /// Writes a plug-in with that manifest.
    void writeManifest(const std::string& text) {
        write(elfOf("US_RESOURCES", zipOf("com_test/manifest.json", text)));
    }

    /// What is wrong with the file, without the text that every error starts with.
    std::string reason() const {
        const std::string start = "cannot install the bundle '" + file_.string() + "': ";
        try {
            readBundleManifest(file_);
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            return text.starts_with(start) ? text.substr(start.size()) : "without the file's name: " + text;
        }
        return "no exception";
    }

    const std::filesystem::path file_ = std::filesystem::temp_directory_path() /
                                        ("BundleManifest_test." + std::to_string(::getpid()) + ".so");
};

}  // namespace

TEST_F(BundleManifest, GivesNameComponentsAndTheWholeObject) {
    writeManifest(
        R"({"bundle.symbolic_name": "com_test", "yw": {"module": {"name": "T"}}, "scr": {"version": 1,
        "components": [{"implementation-class": "a::B", "service": {"interfaces": ["a::C", "a::D"]},
                        "properties": {"eventTag": "x"}}]}})");
    const auto manifest = readBundleManifest(file_);
    EXPECT_EQ(manifest.symbolicName, "com_test");
    EXPECT_TRUE(manifest.json.contains("yw"));
    ASSERT_EQ(manifest.components.size(), 1U);
    EXPECT_EQ(manifest.components[0].implementationClass, "a::B");
    EXPECT_EQ(manifest.components[0].interfaces, (std::vector<std::string>{"a::C", "a::D"}));
    EXPECT_EQ(manifest.components[0].properties.at("eventTag"), foundation::json::Value("x"));
    EXPECT_FALSE(manifest.components[0].startTriggers);
}

TEST_F(BundleManifest, ADotInAKeyMayStandForNestingOrForItself) {
    writeManifest(R"({"bundle": {"symbolic_name": "com_test"}, "scr.version": 1, "scr.components": [
        {"implementation-class": "a::B", "service.interfaces": ["a::C"],
         "properties": {"yw": {"embeddedConnector.startTriggers": {"messageServiceChannels": ["/yvm/*"]}}}}]})");
    const auto manifest = readBundleManifest(file_);
    EXPECT_EQ(manifest.symbolicName, "com_test");
    ASSERT_EQ(manifest.components.size(), 1U);
    EXPECT_EQ(manifest.components[0].interfaces, std::vector<std::string>{"a::C"});
    EXPECT_EQ(manifest.components[0].startTriggers, std::vector<std::string>{"/yvm/*"});
}

TEST_F(BundleManifest, WithoutComponentsIsFine) {
    writeManifest(" \n{\"bundle.symbolic_name\": \"com_test\"}\n");
    EXPECT_TRUE(readBundleManifest(file_).components.empty());
}

TEST_F(BundleManifest, AFileThatIsNotThereIsNamed) {
    EXPECT_EQ(reason(), "cannot open it: No such file or directory");
}

TEST_F(BundleManifest, AFileOfAnotherKindIsRefused) {
    write("MZ and so on");
    EXPECT_EQ(reason(), "it is not an ELF file");
    write("");
    EXPECT_EQ(reason(), "it is not an ELF file");
    auto elf = elfOf("US_RESOURCES", "");
    elf[EI_CLASS] = ELFCLASS32;
    write(elf);
    EXPECT_EQ(reason(), "it is not an ELF file of 64 bits and low byte first");
}

TEST_F(BundleManifest, AFileThatIsCutOffAnywhereIsRefused) {
    const auto whole =
        elfOf("US_RESOURCES", zipOf("com_test/manifest.json", "{\"bundle.symbolic_name\":\"com_test\"}"));
    write(whole);
    ASSERT_EQ(reason(), "no exception");
    for (std::size_t size = SELFMAG; size < whole.size(); ++size) {
        write(whole.substr(0, size));
        ASSERT_EQ(reason(), "the ELF file is damaged or cut off") << size;
    }
}

TEST_F(BundleManifest, AFileWithoutTheSectionIsRefused) {
    write(elfOf("US_RESOURCE", "x"));
    EXPECT_EQ(reason(), "it has no section 'US_RESOURCES', which would hold its manifest");
    write(elfOf("US_RESOURCES_", "x"));
    EXPECT_EQ(reason(), "it has no section 'US_RESOURCES', which would hold its manifest");
}

TEST_F(BundleManifest, ASectionThatIsNoArchiveIsRefused) {
    write(elfOf("US_RESOURCES", "this is no archive at all, although long enough for one"));
    EXPECT_EQ(reason(), "the section 'US_RESOURCES' is not a ZIP archive: Not a zip archive");
}

TEST_F(BundleManifest, AnArchiveWithoutManifestIsRefused) {
    for (const std::string name :
         {"manifest.json", "/manifest.json", "com_test/other.json", "com_test/sub/manifest.json"}) {
        write(elfOf("US_RESOURCES", zipOf(name, "{}")));
        EXPECT_EQ(reason(), "its section 'US_RESOURCES' holds no '<symbolic name>/manifest.json'") << name;
    }
}

TEST_F(BundleManifest, AManifestThatIsNoJsonObjectIsRefused) {
    writeManifest("{\"bundle.symbolic_name\" \"com_test\"}");
    EXPECT_EQ(reason().find("its manifest is not a JSON object: "), 0U) << reason();
    writeManifest("[1]");
    EXPECT_EQ(reason(), "its manifest is not a JSON object: invalid conversion: array to object");
    writeManifest("");
    EXPECT_EQ(reason().find("its manifest is not a JSON object: "), 0U) << reason();
}

TEST_F(BundleManifest, AMissingOrForeignNameIsRefused) {
    writeManifest("{}");
    EXPECT_EQ(reason(), "its manifest has no text 'bundle.symbolic_name'");
    writeManifest(R"({"bundle.symbolic_name": 3})");
    EXPECT_EQ(reason(), "in its manifest, 'bundle.symbolic_name' is of type double; accepted is string");
    writeManifest(R"({"bundle.symbolic_name": "com_other"})");
    EXPECT_EQ(reason(), "its manifest lies in the folder 'com_test' but names the bundle 'com_other'");
}

TEST_F(BundleManifest, ComponentsOfAnotherVersionOrShapeAreRefused) {
    const auto reasonOf = [this](const std::string& scr) {
        writeManifest(R"({"bundle.symbolic_name": "com_test", "scr": )" + scr + "}");
        return reason();
    };
    EXPECT_EQ(reasonOf(R"({"version": 2, "components": []})"), "in its manifest, 'scr.version' must be 1");
    EXPECT_EQ(reasonOf(R"({"components": []})"), "in its manifest, 'scr.version' must be 1");
    EXPECT_EQ(reasonOf(R"({"version": 1, "components": {}})"),
              "in its manifest, 'scr.components' is of type object; accepted is array");
    EXPECT_EQ(reasonOf(R"({"version": 1, "components": [1]})"),
              "in its manifest, 'scr.components' holds an element that is no object");
    EXPECT_EQ(reasonOf(R"({"version": 1, "components": [{}]})"),
              "its manifest has no text 'implementation-class'");
    EXPECT_EQ(
        reasonOf(
            R"({"version": 1, "components": [{"implementation-class": "a", "service": {"interfaces": [1]}}]})"),
        "in its manifest, 'service.interfaces' holds an element that is no text");
    EXPECT_EQ(
        reasonOf(
            R"({"version": 1, "components": [{"implementation-class": "a", "properties": {"yw": {"embeddedConnector": {"startTriggers": {}}}}}]})"),
        "in its manifest, 'yw.embeddedConnector.startTriggers.messageServiceChannels' names no channel");
}
