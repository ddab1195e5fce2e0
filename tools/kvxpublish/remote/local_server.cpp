#include "tools/kvxpublish/remote/local_server.h"

#include <algorithm>
#include <array>

#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/platform/system.h"

namespace kvx::publish {
namespace {

constexpr std::array server_files = {"authority.pem", "server.pem", "server.key"};

// A name of its own, because authorities of former folders may still be trusted. It may speak for localhost only.
std::string authority_configuration() {
  const std::string moment = std::to_string(file_time_now());
  return "[req]\n"
         "prompt = no\n"
         "distinguished_name = name\n"
         "x509_extensions = extensions\n"
         "[name]\n"
         "CN = Authority of kvxpublish serve, " +
         moment +
         "\n"
         "[extensions]\n"
         "basicConstraints = critical,CA:TRUE\n"
         "keyUsage = critical,keyCertSign\n"
         "nameConstraints = critical,permitted;DNS:localhost\n";
}

constexpr const char* server_certificate_configuration =
    "[req]\n"
    "prompt = no\n"
    "distinguished_name = name\n"
    "[name]\n"
    "CN = localhost\n"
    "[extensions]\n"
    "subjectAltName = DNS:localhost\n"
    "basicConstraints = CA:FALSE\n"
    "extendedKeyUsage = serverAuth\n";

// As a quoted word of nginx's configuration.
std::string quoted(const std::string& path) {
  std::string word = "\"";
  for (const char character : path) {
    if (character == '"' || character == '\\') word += '\\';
    word += character;
  }
  return word + '"';
}

bool write(const fs::path& folder, const char* name, const std::string& text, Failure& failure) {
  const fs::path path = folder / name;
  std::string reason;
  return write_file_atomic(path, text, reason) ||
         fail(ExitCode::failed, path_text(path) + ": cannot be written: " + reason, failure);
}

bool has_certificates(const fs::path& folder) {
  return std::ranges::all_of(server_files, [&](const char* name) { return is_file(folder / name); });
}

}  // namespace

const std::vector<std::string>& certificate_commands() {
  static const std::vector<std::string> commands = {
      "openssl req -x509 -config authority.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 365 "
      "-keyout authority.key -out authority.pem",
      "openssl req -config server.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout server.key "
      "-out server.csr",
      "openssl x509 -req -in server.csr -CA authority.pem -CAkey authority.key -CAcreateserial -days 365 "
      "-extfile server.cnf -extensions extensions -out server.pem",
  };
  return commands;
}

std::string local_url(uint16_t port) { return "https://localhost:" + std::to_string(port) + "/patch/"; }

bool nginx_configuration(const fs::path& site, uint16_t port, std::string& text, Failure& failure) {
  std::string path = path_text(site);
  if (path.find('$') != std::string::npos) {
    return fail(ExitCode::failed, path + ": nginx cannot serve a folder with \"$\" in its name; rename it", failure);
  }
  std::ranges::replace(path, '\\', '/');
  text =
      "# Written by kvxpublish serve. Start it with: nginx -p . -c nginx.conf -e error.log\n"
      "daemon off;\n"
      "master_process off;\n"
      "pid nginx.pid;\n"
      "error_log error.log;\n"
      "events { }\n"
      "http {\n"
      "  access_log access.log;\n"
      "  client_body_temp_path temp_body;\n"
      "  proxy_temp_path temp_proxy;\n"
      "  fastcgi_temp_path temp_fastcgi;\n"
      "  uwsgi_temp_path temp_uwsgi;\n"
      "  scgi_temp_path temp_scgi;\n"
      "\n"
      "  # Launchers take every file as it is.\n"
      "  gzip off;\n"
      "  types { }\n"
      "  default_type application/octet-stream;\n"
      "\n"
      "  server {\n"
      "    listen 127.0.0.1:" +
      std::to_string(port) +
      " ssl;\n"
      "    server_name localhost;\n"
      "    ssl_certificate server.pem;\n"
      "    ssl_certificate_key server.key;\n"
      "    ssl_protocols TLSv1.2 TLSv1.3;\n"
      "\n"
      "    # Manifest and signature change with every release.\n"
      "    location /patch/ {\n"
      "      alias " +
      quoted(path + '/') +
      ";\n"
      "      add_header Cache-Control \"no-cache\";\n"
      "    }\n"
      "\n"
      "    # Content is named by its digest and never changes.\n"
      "    location /patch/files/ {\n"
      "      alias " +
      quoted(path + "/files/") +
      ";\n"
      "      add_header Cache-Control \"public, max-age=31536000, immutable\";\n"
      "    }\n"
      "  }\n"
      "}\n";
  return true;
}

bool write_server_folder(const fs::path& folder, const std::string& configuration, bool& needs_certificates,
                         Failure& failure) {
  std::vector<fs::path> made;
  if (!make_folders(folder, made, failure)) return false;
  if (!write(folder, server_configuration_name, configuration, failure)) return false;
  needs_certificates = !has_certificates(folder);
  if (!needs_certificates) return true;
  std::string commands;
  for (const std::string& command : certificate_commands()) commands += command + '\n';
  return write(folder, "authority.cnf", authority_configuration(), failure) &&
         write(folder, "server.cnf", server_certificate_configuration, failure) &&
         write(folder, "openssl_commands.txt", commands, failure);
}

bool finish_certificates(const fs::path& folder, Failure& failure) {
  for (const char* name : {"authority.key", "authority.srl", "server.csr"}) {
    discard_file(folder / name);
  }
  return has_certificates(folder) ||
         fail(ExitCode::failed, path_text(folder) + ": openssl did not make the certificates; see openssl.log there",
              failure);
}

}  // namespace kvx::publish
