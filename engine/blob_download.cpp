#include "engine/blob_download.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "foundations/write_all.h"
#include "manifest/file_digest.h"
#include "manifest/sha256.h"
#include "net/transfer.h"

namespace kvx {
namespace {

constexpr size_t part_chunk_bytes = 4194304;
constexpr uint32_t first_retry_pause_ms = 1000;
constexpr uint32_t most_pause_doublings = 5;
constexpr uint32_t most_stalls = 8;
constexpr uint32_t most_protocol_errors = 3;
constexpr uint32_t most_integrity_failures = 2;

bool seek(HANDLE file, uint64_t position) {
  LARGE_INTEGER distance;
  distance.QuadPart = static_cast<LONGLONG>(position);
  return SetFilePointerEx(file, distance, nullptr, FILE_BEGIN) != 0;
}

bool truncate(HANDLE file) { return seek(file, 0) && SetEndOfFile(file) != 0; }

uint64_t size_or_zero(HANDLE file) {
  LARGE_INTEGER size;
  return GetFileSizeEx(file, &size) != 0 ? static_cast<uint64_t>(size.QuadPart) : 0;
}

// Whether what follows moves or deletes a file.
bool goes_on_with_files(TransferResult result) {
  return result == TransferResult::ok || result == TransferResult::range_ignored ||
         result == TransferResult::range_rejected;
}

bool is_missing_on_server(uint32_t http_status) {
  return http_status == 403 || http_status == 404 || http_status == 410;
}

// One blob's download, used once, on one thread.
class BlobDownload {
 public:
  BlobDownload(const BlobDownloadContext& context, const HttpSession& session, const BlobJob& job,
               ReceiveBuffer& buffer, std::string& error)
      : context_(context),
        session_(session),
        job_(job),
        buffer_(buffer),
        error_(error),
        part_path_(context.store.partial_path(job.hash)) {}

  bool run() {
    if (is_already_staged()) return true;
    for (;;) {
      if (context_.stop.requested()) return fail("cancelled");
      switch (attempt()) {
        case AttemptResult::finished: return true;
        case AttemptResult::failed: return false;
        case AttemptResult::try_again: break;
      }
    }
  }

 private:
  enum class AttemptResult : uint8_t { finished, failed, try_again };
  // What an attempt brought: nothing, bytes that an earlier attempt had already brought before a restart, or more.
  enum class Progress : uint8_t { none, known_bytes, new_bytes };

  bool fail(std::string text) {
    error_ = std::move(text);
    return false;
  }

  AttemptResult give_up(std::string text) {
    error_ = std::move(text);
    return AttemptResult::failed;
  }

  bool is_already_staged() {
    if (!context_.store.has_blob(job_.hash, job_.size)) return false;
    const std::wstring path = context_.store.blob_path(job_.hash);
    std::string hash_error;
    const std::string digest = hash_file(
        path, [this](uint64_t) { return !context_.stop.requested(); }, hash_error);
    // A stop leaves no digest and says nothing about the blob.
    if (context_.stop.requested()) return false;
    if (digest == job_.hash) {
      context_.ui.progress_done += job_.size;
      log::write("blob %s already staged", job_.hash.c_str());
      return true;
    }
    remove(path);
    return false;
  }

  AttemptResult attempt() {
    FileHandle part(CreateFileW(long_path(part_path_).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!part) return give_up("cannot create a download file: " + error_text(GetLastError()));
    if (!take_up_existing_bytes(part.get())) return after_write_failure();
    count_position();
    if (!seek(part.get(), position_)) return after_failed_call();
    if (position_ > 0) log::write("resuming %s at %llu of %llu bytes", job_.hash.c_str(), position_, job_.size);

    const uint64_t start = position_;
    const TransferResult result = position_ < job_.size ? transfer(part.get()) : TransferResult::ok;
    // After a stop the run may have ended already, so no file is touched any more. What this one holds is hashed again
    // before it is trusted.
    if (!context_.stop.requested() && !write_failed_ && !flush(part.get())) note_failed_call();
    part_size_ = size_or_zero(part.get());
    part.reset();
    if (write_failed_) return after_write_failure();
    // Asked again, because a flush may have been left behind.
    if (context_.stop.requested() && goes_on_with_files(result)) return give_up("cancelled");
    return decide(result, progress_since(start));
  }

  // Hashes what an earlier attempt or run left, instead of trusting it. False when a stop was requested or the file
  // could not be cut.
  bool take_up_existing_bytes(HANDLE part) {
    position_ = 0;
    static_cast<void>(hasher_.reset());
    const uint64_t existing = size_or_zero(part);
    if (existing <= job_.size && hash_existing_bytes(part, existing)) {
      position_ = existing;
      return true;
    }
    if (context_.stop.requested()) return false;
    static_cast<void>(hasher_.reset());
    if (truncate(part)) return true;
    note_failed_call();
    return false;
  }

  bool hash_existing_bytes(HANDLE part, uint64_t existing) {
    const auto most = static_cast<size_t>(std::min<uint64_t>(existing, part_chunk_bytes));
    const auto buffer = std::make_unique_for_overwrite<uint8_t[]>(most);
    for (uint64_t done = 0; done < existing;) {
      if (context_.stop.requested()) return false;
      const DWORD wanted = static_cast<DWORD>(std::min<uint64_t>(existing - done, most));
      DWORD got = 0;
      if (ReadFile(part, buffer.get(), wanted, &got, nullptr) == 0 || got != wanted) return false;
      static_cast<void>(hasher_.update(buffer.get(), got));
      done += got;
    }
    return true;
  }

  // Takes as long as a slow disk needs for all that waits to be written.
  [[nodiscard]] bool flush(HANDLE part) const {
    const LeavableCall call(session_);
    return FlushFileBuffers(part) != 0;
  }

  // Brings this blob's share of the shared counter to the current position, as a difference.
  void count_position() {
    context_.ui.progress_done += position_ - counted_;
    counted_ = position_;
  }

  void discard_part() {
    remove(part_path_);
    position_ = 0;
    count_position();
  }

  void remove(const std::wstring& path) {
    uint32_t delete_error = 0;
    static_cast<void>(delete_file(path, delete_error, &context_.stop));
  }

  TransferResult transfer(HANDLE part) {
    const std::wstring url = context_.base_url + L"files/" + to_wide(job_.hash);
    transfer_error_.clear();
    return download_range(
        session_, url, position_, job_.size,
        [this, part](const uint8_t* bytes, size_t count) { return store_chunk(part, bytes, count); }, &context_.stop,
        buffer_, http_status_, transfer_error_);
  }

  // On this thread, or on the one that passes on what waits in the buffer.
  bool store_chunk(HANDLE part, const uint8_t* bytes, size_t count) {
    if (context_.stop.requested()) return false;
    if (!write_all(part, bytes, count, write_error_)) {
      write_failed_ = true;
      return false;
    }
    static_cast<void>(hasher_.update(bytes, count));
    position_ += count;
    count_position();
    return true;
  }

  Progress progress_since(uint64_t start) {
    const uint64_t furthest_before = std::exchange(furthest_, std::max(furthest_, position_));
    if (position_ == start) return Progress::none;
    return position_ > furthest_before ? Progress::new_bytes : Progress::known_bytes;
  }

  AttemptResult decide(TransferResult result, Progress progress) {
    switch (result) {
      case TransferResult::ok: return verify();
      case TransferResult::cancelled: return give_up("cancelled");
      case TransferResult::write_failed: return after_write_failure();
      case TransferResult::range_ignored: return restart("range ignored");
      case TransferResult::range_rejected: return restart("HTTP 416");
      case TransferResult::http_status:
        if (is_missing_on_server(http_status_)) {
          return give_up("a required file is missing on the update server (HTTP " + std::to_string(http_status_) + ")");
        }
        return retry_later(progress);
      case TransferResult::protocol:
        if (++protocol_errors_ == most_protocol_errors) return give_up(transfer_error_);
        return retry_later(progress);
      case TransferResult::network: break;
    }
    return retry_later(progress);
  }

  void note_failed_call() {
    write_error_ = GetLastError();
    write_failed_ = true;
  }

  AttemptResult after_failed_call() {
    note_failed_call();
    return after_write_failure();
  }

  AttemptResult after_write_failure() {
    if (!write_failed_) return give_up("cancelled");  // a stop, not a failure
    if (write_error_ == ERROR_DISK_FULL || write_error_ == ERROR_HANDLE_DISK_FULL) return give_up("the disk is full");
    return give_up("cannot write a downloaded file: " + error_text(write_error_));
  }

  AttemptResult restart(const char* answer) {
    log::write("server did not accept resuming %s (%s): restarting it from 0", job_.hash.c_str(), answer);
    discard_part();
    if (++stalls_ > most_stalls) return give_up("the server does not allow resuming downloads");
    return AttemptResult::try_again;
  }

  // Bytes that an earlier attempt had already brought neither reset nor raise the count of stalls.
  AttemptResult retry_later(Progress progress) {
    if (progress == Progress::new_bytes) stalls_ = 0;
    if (progress == Progress::none) ++stalls_;
    if (stalls_ > most_stalls) return give_up(transfer_error_);
    const uint32_t pause_ms = first_retry_pause_ms << std::min(stalls_, most_pause_doublings);
    log::write("download of %s interrupted at %llu bytes (%s); retrying in %lu ms", job_.hash.c_str(), position_,
               transfer_error_.c_str(), static_cast<unsigned long>(pause_ms));
    return context_.stop.wait_or_stop(pause_ms) ? AttemptResult::try_again : give_up("cancelled");
  }

  AttemptResult verify() {
    const std::string digest = hasher_.finish_text();
    if (digest != job_.hash) {
      log::write("INTEGRITY FAILURE: %s hashed to %s", job_.hash.c_str(), digest.empty() ? "?" : digest.c_str());
      return after_integrity_failure();
    }
    // The digest is that of the bytes written; another program may have made the file longer.
    if (part_size_ != job_.size) {
      log::write("INTEGRITY FAILURE: the file of %s has %llu bytes", job_.hash.c_str(), part_size_);
      return after_integrity_failure();
    }
    uint32_t move_error = 0;
    if (!move_file(part_path_, context_.store.blob_path(job_.hash), move_error, &context_.stop)) {
      if (context_.stop.requested()) return give_up("cancelled");
      return give_up("cannot store a downloaded file: " + error_text(move_error));
    }
    log::write("downloaded + verified %s (%llu bytes)", job_.hash.c_str(), job_.size);
    return AttemptResult::finished;
  }

  AttemptResult after_integrity_failure() {
    constexpr size_t shown_digits = 16;
    discard_part();
    furthest_ = 0;
    if (++integrity_failures_ < most_integrity_failures) return AttemptResult::try_again;
    return give_up("a downloaded file failed the integrity check (" + job_.hash.substr(0, shown_digits) +
                   "...). The file on the server is damaged or was modified");
  }

  const BlobDownloadContext& context_;
  const HttpSession& session_;
  const BlobJob& job_;
  ReceiveBuffer& buffer_;
  std::string& error_;
  const std::wstring part_path_;

  Sha256Hasher hasher_;  // over the bytes of the partial file
  uint64_t position_ = 0;
  uint64_t furthest_ = 0;   // the largest position of any attempt
  uint64_t counted_ = 0;    // of this blob, in the shared progress_done
  uint64_t part_size_ = 0;  // of the partial file after an attempt
  bool write_failed_ = false;
  uint32_t write_error_ = 0;
  uint32_t http_status_ = 0;
  std::string transfer_error_;

  uint32_t stalls_ = 0;  // attempts in a row that brought nothing new, restarts included
  uint32_t protocol_errors_ = 0;
  uint32_t integrity_failures_ = 0;
};

}  // namespace

bool download_blob(const BlobDownloadContext& context, const HttpSession& session, const BlobJob& job,
                   ReceiveBuffer& buffer, std::string& error) {
  return BlobDownload(context, session, job, buffer, error).run();
}

}  // namespace kvx
