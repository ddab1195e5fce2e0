// A program file as bytes on disk: its headers, sections and imports.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::test {

// Throws std::runtime_error, which fails the test, when a structure lies outside the file.
class PeFile {
 public:
  explicit PeFile(const std::wstring& path);

  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  [[nodiscard]] IMAGE_NT_HEADERS64 headers() const;
  [[nodiscard]] std::vector<IMAGE_SECTION_HEADER> sections() const;

  // Names of the DLLs in the import table, in upper case.
  [[nodiscard]] std::vector<std::string> imported_dlls() const;

 private:
  template <typename Structure>
  [[nodiscard]] Structure read(size_t offset) const;
  [[nodiscard]] size_t file_offset(uint32_t virtual_address) const;

  std::string bytes_;
};

}  // namespace kvx::test
