#include <gmock/gmock.h>
#include <string>

#include "foundations/text.h"
#include "tests/program/pe_file.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

using testing::Contains;
using testing::IsSubsetOf;

constexpr size_t largest_program_bytes = 450000;
const bool release_build = KVX_RELEASE_BUILD;

class ProgramFile : public testing::Test {
 protected:
  PeFile program_{to_wide(build_path(KVX_PROGRAM_FILE))};
};

// Windows looks for any other library in the launcher's own folder first, where anybody may put one. COMCTL32.DLL is
// named by the application manifest, with the system's own place.
TEST_F(ProgramFile, ImportsOnlyDllsThatWindowsTakesFromItsOwnFolder) {
  EXPECT_THAT(program_.imported_dlls(), IsSubsetOf({"ADVAPI32.DLL", "COMCTL32.DLL", "GDI32.DLL", "KERNEL32.DLL",
                                                    "MSVCRT.DLL", "SHELL32.DLL", "USER32.DLL"}));
  EXPECT_THAT(program_.imported_dlls(), Contains("KERNEL32.DLL"));
}

TEST_F(ProgramFile, IsSmallAndStripped) {
  if (!release_build) GTEST_SKIP() << "only a release build is stripped";
  EXPECT_LE(program_.bytes().size(), largest_program_bytes);
  EXPECT_EQ(program_.headers().FileHeader.NumberOfSymbols, 0U);
  for (const IMAGE_SECTION_HEADER& section : program_.sections()) {
    // Debug sections have long names, which an image refers to as "/" and a number.
    EXPECT_NE(section.Name[0], '/');
  }
}

TEST_F(ProgramFile, IsA64BitProgramWithoutAConsole) {
  const IMAGE_NT_HEADERS64 headers = program_.headers();
  EXPECT_EQ(headers.Signature, static_cast<DWORD>(IMAGE_NT_SIGNATURE));
  EXPECT_EQ(headers.FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
  EXPECT_EQ(headers.OptionalHeader.Magic, IMAGE_NT_OPTIONAL_HDR64_MAGIC);
  EXPECT_EQ(headers.OptionalHeader.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

TEST_F(ProgramFile, IsHardened) {
  const IMAGE_OPTIONAL_HEADER64 header = program_.headers().OptionalHeader;
  for (const auto& [flag, name] : {std::pair<WORD, const char*>{IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE, "dynamic base"},
                                   {IMAGE_DLLCHARACTERISTICS_NX_COMPAT, "no execution of data"},
                                   {IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA, "high-entropy addresses"}}) {
    EXPECT_NE(header.DllCharacteristics & flag, 0) << name;
  }
  // Without relocations the dynamic base is an empty promise.
  EXPECT_NE(header.DataDirectory[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size, 0U);
  EXPECT_EQ(program_.headers().FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED, 0);
  for (const IMAGE_SECTION_HEADER& section : program_.sections()) {
    const bool writable = (section.Characteristics & IMAGE_SCN_MEM_WRITE) != 0;
    const bool executable = (section.Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0;
    EXPECT_FALSE(writable && executable) << section.Name;
  }
}

TEST_F(ProgramFile, HoldsItsVersionMarkerOnceAsPlainText) {
  const std::string marker = "KVXLAUNCHER-VERSION:" KVX_PROGRAM_VERSION ";";
  const std::string& bytes = program_.bytes();
  const size_t first = bytes.find("KVXLAUNCHER-VERSION:");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(bytes.substr(first, marker.size()), marker);
  EXPECT_EQ(bytes.find("KVXLAUNCHER-VERSION:", first + 1), std::string::npos);
}

TEST_F(ProgramFile, NamesNoFolderOfTheBuildMachine) {
  for (const std::string& folder :
       {source_path("").substr(2), build_path("").substr(2), std::string("/home/"), std::string("/root/")}) {
    EXPECT_EQ(program_.bytes().find(folder), std::string::npos) << folder;
  }
}

}  // namespace
}  // namespace kvx::test
