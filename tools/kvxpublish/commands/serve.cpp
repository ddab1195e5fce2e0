#include "tools/kvxpublish/commands/serve.h"

#include <memory>

#include "foundations/text.h"
#include "tools/kvxpublish/platform/child_program.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/remote/local_server.h"

namespace kvx::publish {
namespace {

constexpr uint16_t customary_port = 8443;
constexpr uint32_t look_interval_ms = 100;

struct ServeOptions {
  std::string site;
  std::string folder;
  uint16_t port = customary_port;
  bool print = false;
  bool no_start = false;
};

// Where things lie, as full paths.
struct Server {
  fs::path site;
  fs::path folder;
  std::string configuration;
  bool needs_certificates = false;
};

fs::path server_folder(const ServeOptions& options) {
  return options.folder.empty() ? given_path(options.site) += "-server" : given_path(options.folder);
}

bool describe_server(const ServeOptions& options, Server& server, Failure& failure) {
  server.site = given_path(options.site);
  server.folder = server_folder(options);
  if (!is_folder(server.site)) {
    return fail(ExitCode::failed, path_text(server.site) + ": there is no such folder", failure);
  }
  return nginx_configuration(server.site, options.port, server.configuration, failure);
}

// The first of these two programs that is not installed, or null.
const char* missing_program() {
  for (const char* name : {"openssl", "nginx"}) {
    if (find_program(name).empty()) return name;
  }
  return nullptr;
}

bool stopped(Failure& failure) { return fail(ExitCode::failed, "stopped before the server had started", failure); }

bool make_certificates(const Server& server, const Console& console, Failure& failure) {
  if (!server.needs_certificates) return true;
  const fs::path openssl = find_program("openssl");
  for (const std::string& command : certificate_commands()) {
    ChildProgram program;
    if (!program.start(openssl, command, server.folder, server.folder / "openssl.log", failure)) {
      return false;
    }
    while (!program.wait(look_interval_ms)) {
      if (console.interrupted()) return stopped(failure);
    }
  }
  return finish_certificates(server.folder, failure);
}

std::string authority_path(const Server& server) { return path_text(server.folder / server_authority_name); }

// Returns when the person has asked to stop, or the server has ended by itself, which is a failure.
bool run_server(const ServeOptions& options, const Server& server, Console& console, Failure& failure) {
  ChildProgram nginx;
  if (!make_certificates(server, console, failure) ||
      !nginx.start(find_program("nginx"), "nginx -p . -c nginx.conf -e error.log", server.folder,
                   server.folder / "error.log", failure)) {
    return false;
  }
  console.write_message("serving " + path_text(server.site) + " at " + local_url(options.port) +
                        "; Ctrl+C ends it. Trust its authority for this user, if you have not yet:\n  certutil -user "
                        "-addstore Root \"" +
                        authority_path(server) + "\"\n");
  while (!console.interrupted()) {
    const std::optional<uint32_t> code = nginx.wait(look_interval_ms);
    if (!code) continue;
    if (console.interrupted()) break;
    return fail(ExitCode::failed,
                "nginx ended by itself with exit code " + std::to_string(*code) + "; see " +
                    path_text(server.folder / "error.log"),
                failure);
  }
  return true;
}

void report_server(const ServeOptions& options, const Server& server, bool started, Report& report) {
  report.add("url", local_url(options.port));
  report.add("folder", path_text(server.folder));
  report.add("configuration", path_text(server.folder / server_configuration_name));
  report.add("authority", authority_path(server));
  report.add("started", started);
}

bool start_server(const ServeOptions& options, const Server& server, const CommandContext& context, Failure& failure) {
  const char* missing = options.no_start ? nullptr : missing_program();
  const bool start = !options.no_start && missing == nullptr;
  if (start && !run_server(options, server, context.console, failure)) return false;
  report_server(options, server, start, context.report);
  if (missing != nullptr) {
    context.report.note(std::string(missing) +
                        " is not in PATH, and the server was not started; install it, or take the configuration as a "
                        "pattern for another server");
  }
  return true;
}

bool run_serve(const ServeOptions& options, bool as_json, const CommandContext& context, Failure& failure) {
  Server server;
  if (!describe_server(options, server, failure)) return false;
  if (options.print) {
    if (as_json) {
      context.report.add("configuration", server.configuration);
    } else {
      context.console.write_data(server.configuration);
    }
    return true;
  }
  return write_server_folder(server.folder, server.configuration, server.needs_certificates, failure) &&
         start_server(options, server, context, failure);
}

}  // namespace

RunCommand define_serve(CommandOptions command) {
  const auto options = std::make_shared<ServeOptions>();
  add_site_folder(command, options->site);
  command.add_number("--port", options->port, 1, 65535, "The port of 127.0.0.1").type_name("N").show_default();
  command
      .add_path("--folder", options->folder,
                "The server's own folder, for its configuration, certificates and logs; by default SITE-server")
      .type_name("DIR");
  const DeclaredOption print =
      command.add_flag("--print", options->print, "Print nginx's configuration and do nothing else");
  command
      .add_flag("--no-start", options->no_start, "Write the server's folder, but make no certificates and do not start")
      .excludes(print);
  command.footer("Example:\n  kvxpublish serve site --port 8443");
  return [options, command](const CommandContext& context, Failure& failure) {
    return run_serve(*options, command.given("--json"), context, failure);
  };
}

}  // namespace kvx::publish
