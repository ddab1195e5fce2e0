// Whether a server sends the files of a site the way launchers need them: with their length, as they are, and from any
// byte on. What is wrong becomes a problem that names the URL and what to do about it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/problems.h"
#include "tools/kvxpublish/platform/http.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// For one thread at a time.
class HttpCheck {
 public:
  explicit HttpCheck(Problems& problems) : problems_(problems) {}

  [[nodiscard]] bool open(Failure& failure);

  // The headers of a manifest or a signature. One that is not there is not this check's business. `notes` receives
  // what makes players wait without keeping them from anything.
  void check_document(const std::string& url, std::vector<std::string>& notes);

  // Asks for the last byte alone, as a launcher asks for the rest of a download. An empty file has no last byte and is
  // asked for whole. False when there is a problem.
  [[nodiscard]] bool check_resuming(const std::string& url, uint64_t size);

  // Asks for the whole content and reads it into `sink`; without one, only the headers are looked at. False when there
  // is a problem, or the sink stops.
  [[nodiscard]] bool check_whole(const std::string& url, uint64_t size, const ContentSink& sink);

 private:
  struct Answer {
    std::string url;
    HttpAnswer http;
  };

  [[nodiscard]] bool get(Answer& answer, const std::vector<std::string>& headers, const HttpSink& sink);
  [[nodiscard]] bool check_head(const Answer& answer, uint64_t size);
  [[nodiscard]] bool check_coding(const Answer& answer);
  [[nodiscard]] bool check_length(const Answer& answer, uint64_t length);
  [[nodiscard]] bool check_range(const Answer& answer, uint64_t offset, uint64_t size);
  [[nodiscard]] bool wrong_size(const Answer& answer, uint64_t actual, uint64_t size);
  [[nodiscard]] bool wrong_status(const Answer& answer);
  // Adds the problem and returns false.
  [[nodiscard]] bool wrong(const Answer& answer, const std::string& line, ExitCode code = ExitCode::refused);

  Problems& problems_;
  HttpClient client_;
};

}  // namespace kvx::publish
