// The least that the system's own calls allow, to hold the launcher against: the same work with no program around it.
//   bare_calls install LIST FOLDER URL    downloads, hashes, writes, flushes and twice renames every file
//   bare_calls hash LIST FOLDER           opens, reads and hashes every file
//   bare_calls attributes LIST FOLDER     asks for every file's attributes
// LIST has a line "digest size path" for each file, FOLDER is the install folder, and URL the server's folder of blobs.
// Prints the seconds that the work took, without the start of the process; anything unexpected ends it with 1.
#include <windows.h>
#include <bcrypt.h>
#include <winhttp.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bench/stopwatch.h"

namespace {

using kvx::bench::Stopwatch;

constexpr size_t download_threads = 3;
constexpr size_t download_buffer_bytes = 1048576;
constexpr size_t hash_buffer_bytes = 4194304;
constexpr size_t digest_bytes = 32;

struct File {
  std::string digest;
  uint64_t size = 0;
  std::wstring target;  // in the install folder
  std::wstring blob;
  std::wstring partial;
};

[[noreturn]] void give_up(const char* call) {
  std::fprintf(stderr, "bare_calls: %s failed with error %lu\n", call, GetLastError());
  std::exit(1);
}

// All names are plain ASCII.
std::wstring widen(const std::string& text) { return {text.begin(), text.end()}; }

std::vector<File> read_list(const char* path, const std::wstring& folder) {
  std::ifstream list(path);
  std::vector<File> files;
  File file;
  std::string name;
  while (list >> file.digest >> file.size >> std::ws && std::getline(list, name)) {
    file.target = folder + L'\\' + widen(name);
    file.blob = folder + L"\\.kvx_patch\\blobs\\" + widen(file.digest);
    file.partial = folder + L"\\.kvx_patch\\dl\\" + widen(file.digest) + L".part";
    files.push_back(file);
  }
  if (files.empty()) give_up("reading the list");
  return files;
}

// One after the other; the system keeps one object for all.
class Hash {
 public:
  Hash() {
    if (BCryptOpenAlgorithmProvider(&provider_, BCRYPT_SHA256_ALGORITHM, nullptr, BCRYPT_HASH_REUSABLE_FLAG) != 0 ||
        BCryptCreateHash(provider_, &hash_, nullptr, 0, nullptr, 0, BCRYPT_HASH_REUSABLE_FLAG) != 0) {
      give_up("BCryptCreateHash");
    }
  }

  void add(uint8_t* bytes, DWORD count) {
    if (BCryptHashData(hash_, bytes, count, 0) != 0) give_up("BCryptHashData");
  }

  [[nodiscard]] bool finish_is(const std::string& digest) {
    std::array<uint8_t, digest_bytes> bytes{};
    if (BCryptFinishHash(hash_, bytes.data(), digest_bytes, 0) != 0) give_up("BCryptFinishHash");
    constexpr char digits[] = "0123456789abcdef";
    for (size_t i = 0; i < digest_bytes; ++i) {
      if (digest[2 * i] != digits[bytes[i] >> 4] || digest[2 * i + 1] != digits[bytes[i] & 0x0F]) return false;
    }
    return true;
  }

 private:
  BCRYPT_ALG_HANDLE provider_ = nullptr;
  BCRYPT_HASH_HANDLE hash_ = nullptr;
};

void rename(const std::wstring& from, const std::wstring& to) {
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 0) {
    give_up("MoveFileExW");
  }
}

// One thread of a download.
class Downloader {
 public:
  Downloader(HINTERNET session, const URL_COMPONENTS& server, std::wstring path)
      : connection_(WinHttpConnect(session, std::wstring(server.lpszHostName, server.dwHostNameLength).c_str(),
                                   server.nPort, 0)),
        path_(std::move(path)) {
    if (connection_ == nullptr) give_up("WinHttpConnect");
  }

  void fetch(const File& file) {
    const HINTERNET request = ask_for(file.digest);
    HANDLE part = CreateFileW(file.partial.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (part == INVALID_HANDLE_VALUE) give_up("CreateFileW");
    store_body(request, part);
    if (FlushFileBuffers(part) == 0) give_up("FlushFileBuffers");
    CloseHandle(part);
    WinHttpCloseHandle(request);
    if (!hash_.finish_is(file.digest)) give_up("a file's digest");
    rename(file.partial, file.blob);
  }

 private:
  HINTERNET ask_for(const std::string& digest) {
    const HINTERNET request = WinHttpOpenRequest(connection_, L"GET", (path_ + widen(digest)).c_str(), nullptr,
                                                 WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, 0);
    DWORD status = 0;
    DWORD bytes = sizeof(status);
    if (WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) == 0 ||
        WinHttpReceiveResponse(request, nullptr) == 0 ||
        WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                            WINHTTP_HEADER_NAME_BY_INDEX, &status, &bytes, WINHTTP_NO_HEADER_INDEX) == 0 ||
        status != HTTP_STATUS_OK) {
      give_up("a request");
    }
    return request;
  }

  void store_body(HINTERNET request, HANDLE part) {
    for (;;) {
      DWORD got = 0;
      DWORD written = 0;
      if (WinHttpReadData(request, buffer_.data(), download_buffer_bytes, &got) == 0) give_up("WinHttpReadData");
      if (got == 0) return;
      hash_.add(buffer_.data(), got);
      if (WriteFile(part, buffer_.data(), got, &written, nullptr) == 0 || written != got) give_up("WriteFile");
    }
  }

  HINTERNET connection_;
  const std::wstring path_;
  Hash hash_;
  std::vector<uint8_t> buffer_ = std::vector<uint8_t>(download_buffer_bytes);
};

HINTERNET open_session() {
  const HINTERNET session = WinHttpOpen(L"bare_calls", WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, WINHTTP_NO_PROXY_NAME,
                                        WINHTTP_NO_PROXY_BYPASS, 0);
  if (session == nullptr) give_up("WinHttpOpen");
  return session;
}

void make_folders(const std::vector<File>& files, const std::wstring& folder) {
  std::set<std::wstring> folders = {folder + L"\\.kvx_patch", folder + L"\\.kvx_patch\\blobs",
                                    folder + L"\\.kvx_patch\\dl"};
  for (const File& file : files) {
    for (size_t end = file.target.find(L'\\', folder.size() + 1); end != std::wstring::npos;
         end = file.target.find(L'\\', end + 1)) {
      folders.insert(file.target.substr(0, end));
    }
  }
  for (const std::wstring& path : folders) CreateDirectoryW(path.c_str(), nullptr);
}

void install(std::vector<File> files, const std::wstring& folder, const std::wstring& url) {
  URL_COMPONENTS server{};
  server.dwStructSize = sizeof(server);
  server.dwHostNameLength = server.dwUrlPathLength = static_cast<DWORD>(-1);
  if (WinHttpCrackUrl(url.c_str(), 0, 0, &server) == 0) give_up("WinHttpCrackUrl");

  const Stopwatch stopwatch;
  make_folders(files, folder);
  std::sort(files.begin(), files.end(), [](const File& a, const File& b) { return a.size > b.size; });
  const HINTERNET session = open_session();
  std::atomic<size_t> next{0};
  const auto work = [&] {
    Downloader downloader(session, server, server.lpszUrlPath);
    for (size_t index = next++; index < files.size(); index = next++) downloader.fetch(files[index]);
  };
  std::vector<std::thread> threads;
  threads.reserve(download_threads);
  for (size_t i = 0; i < download_threads; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  for (const File& file : files) rename(file.blob, file.target);
  stopwatch.print();
}

void hash(const std::vector<File>& files) {
  const Stopwatch stopwatch;
  Hash sha256;
  std::vector<uint8_t> buffer(hash_buffer_bytes);
  for (const File& file : files) {
    HANDLE handle = CreateFileW(file.target.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (handle == INVALID_HANDLE_VALUE) give_up("CreateFileW");
    DWORD got = 0;
    do {
      if (ReadFile(handle, buffer.data(), hash_buffer_bytes, &got, nullptr) == 0) give_up("ReadFile");
      sha256.add(buffer.data(), got);
    } while (got != 0);
    CloseHandle(handle);
    if (!sha256.finish_is(file.digest)) give_up("a file's digest");
  }
  stopwatch.print();
}

void ask_for_attributes(const std::vector<File>& files) {
  kvx::bench::print_best_pass([&] {
    for (const File& file : files) {
      WIN32_FILE_ATTRIBUTE_DATA data;
      if (GetFileAttributesExW(file.target.c_str(), GetFileExInfoStandard, &data) == 0) give_up("GetFileAttributesExW");
    }
  });
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> given(arguments, arguments + count);
  if (given.size() < 4) give_up("reading the arguments");
  const std::wstring folder = LR"(\\?\)" + widen(given[3]);
  const std::vector<File> files = read_list(given[2].c_str(), folder);
  if (given[1] == "install" && given.size() > 4) {
    install(files, folder, widen(given[4]));
  } else if (given[1] == "hash") {
    hash(files);
  } else if (given[1] == "attributes") {
    ask_for_attributes(files);
  } else {
    give_up("reading the arguments");
  }
  return 0;
}
