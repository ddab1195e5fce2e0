#include "tests/program/pe_file.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "foundations/paths.h"
#include "tests/support/temp_folder.h"

namespace kvx::test {

PeFile::PeFile(const std::wstring& path) : bytes_(read_text(full_path(path))) {}

template <typename Structure>
Structure PeFile::read(size_t offset) const {
  if (offset > bytes_.size() || bytes_.size() - offset < sizeof(Structure)) {
    throw std::runtime_error("the program file ends too early");
  }
  Structure structure{};
  std::memcpy(&structure, bytes_.data() + offset, sizeof(structure));
  return structure;
}

IMAGE_NT_HEADERS64 PeFile::headers() const {
  return read<IMAGE_NT_HEADERS64>(static_cast<size_t>(read<IMAGE_DOS_HEADER>(0).e_lfanew));
}

std::vector<IMAGE_SECTION_HEADER> PeFile::sections() const {
  const IMAGE_FILE_HEADER header = headers().FileHeader;
  const size_t first = static_cast<size_t>(read<IMAGE_DOS_HEADER>(0).e_lfanew) +
                       offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + header.SizeOfOptionalHeader;
  std::vector<IMAGE_SECTION_HEADER> list;
  for (size_t i = 0; i < header.NumberOfSections; ++i) {
    list.push_back(read<IMAGE_SECTION_HEADER>(first + i * sizeof(IMAGE_SECTION_HEADER)));
  }
  return list;
}

size_t PeFile::file_offset(uint32_t virtual_address) const {
  for (const IMAGE_SECTION_HEADER& section : sections()) {
    if (virtual_address >= section.VirtualAddress && virtual_address - section.VirtualAddress < section.SizeOfRawData) {
      return section.PointerToRawData + (virtual_address - section.VirtualAddress);
    }
  }
  throw std::runtime_error("an address lies in no section");
}

std::vector<std::string> PeFile::imported_dlls() const {
  std::vector<std::string> names;
  const IMAGE_DATA_DIRECTORY directory = headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (size_t offset = file_offset(directory.VirtualAddress);; offset += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
    const auto descriptor = read<IMAGE_IMPORT_DESCRIPTOR>(offset);
    if (descriptor.Name == 0) return names;
    std::string name = bytes_.c_str() + file_offset(descriptor.Name);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    names.push_back(name);
  }
}

}  // namespace kvx::test
