// What is said about content that is not what its name and the manifest say, wherever it lies.
#pragma once

#include <cstdint>
#include <string>

namespace kvx::publish {

// `name` is the path or URL.
[[nodiscard]] std::string missing_problem(const std::string& name);
[[nodiscard]] std::string size_problem(const std::string& name, uint64_t actual, uint64_t size);
[[nodiscard]] std::string digest_problem(const std::string& name);

}  // namespace kvx::publish
