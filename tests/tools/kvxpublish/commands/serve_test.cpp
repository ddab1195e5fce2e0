#include "tools/kvxpublish/commands/serve.h"

#include <windows.h>

#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "tests/support/test_paths.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/remote/local_server.h"

namespace kvx::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::string with_slashes(std::string path) {
  std::ranges::replace(path, '\\', '/');
  return path;
}

// A PATH of its own for as long as it lives.
class PathVariable {
 public:
  explicit PathVariable(const std::wstring& value) {
    wchar_t text[32767];
    former_.assign(text, GetEnvironmentVariableW(L"PATH", text, 32767));
    SetEnvironmentVariableW(L"PATH", value.c_str());
  }
  PathVariable(const PathVariable&) = delete;
  PathVariable& operator=(const PathVariable&) = delete;
  ~PathVariable() { SetEnvironmentVariableW(L"PATH", former_.c_str()); }

 private:
  std::wstring former_;
};

class Serve : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(site_.pack().code, 0);
    ASSERT_TRUE(create_folders(programs_));
  }

  // Stand-ins for these programs, the only ones in PATH.
  void install(const std::vector<std::wstring>& names) const {
    for (const std::wstring& name : names) {
      uint32_t error = 0;
      ASSERT_TRUE(copy_file(native_path(build_path(KVX_STAND_IN)), programs_ + L"\\" + name, error));
    }
  }

  [[nodiscard]] std::wstring server(const std::wstring& name) const { return site_.path(L"site-server\\" + name); }
  [[nodiscard]] std::string server_path(const std::string& name) const {
    return to_utf8(site_.path(L"site-server")) + "\\" + name;
  }

  [[nodiscard]] CommandResult serve(std::vector<std::string> options = {}) {
    const PathVariable path(programs_);
    CapturedConsole console;
    console.stop_asked = stop_asked_;
    options.insert(options.begin(), {"serve", folder_});
    return kvxpublish(options, console);
  }

  [[nodiscard]] std::string report(const std::string& started, const std::string& port = "8443") const {
    return "url=https://localhost:" + port + "/patch/\nfolder=" + to_utf8(site_.path(L"site-server")) +
           "\nconfiguration=" + server_path("nginx.conf") + "\nauthority=" + server_path("authority.pem") +
           "\nstarted=" + started + "\n";
  }

  // What a person does who waits until the server runs, and then asks to stop.
  void stop_when_it_runs() {
    stop_asked_ = [this] { return exists(server(L"running")); };
  }

  PublishSite site_;
  std::string folder_ = site_.site_folder();
  std::wstring programs_ = site_.path(L"programs");
  std::function<bool()> stop_asked_;
};

TEST_F(Serve, PrintsAConfigurationAndDoesNothingElse) {
  const FolderTree before = folder_tree(site_.path(L""));
  const CommandResult result = serve({"--print", "--port=4711"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.messages, IsEmpty());
  const std::string site = with_slashes(folder_);
  for (const std::string& line : {
           std::string("listen 127.0.0.1:4711 ssl;"),
           std::string("ssl_certificate server.pem;"),
           std::string("ssl_protocols TLSv1.2 TLSv1.3;"),
           std::string("gzip off;"),
           "location /patch/ {\n      alias \"" + site + "/\";\n      add_header Cache-Control \"no-cache\";\n    }\n",
           "location /patch/files/ {\n      alias \"" + site +
               "/files/\";\n      add_header Cache-Control \"public, max-age=31536000, immutable\";\n    }\n",
       }) {
    EXPECT_THAT(result.data, HasSubstr("  " + line));
  }
  EXPECT_EQ(folder_tree(site_.path(L"")), before);
}

TEST_F(Serve, WritesAFolderForAServerThatSomebodyElseStarts) {
  const FolderTree before = folder_tree(to_wide(folder_));
  const CommandResult result = serve({"--no-start", "--port=4711"});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.data, report("no", "4711"));
  EXPECT_THAT(result.messages, IsEmpty());
  EXPECT_EQ(read_text(server(L"nginx.conf")), serve({"--print", "--port=4711"}).data);
  EXPECT_THAT(list_folder(site_.path(L"site-server")),
              testing::UnorderedElementsAre(L"authority.cnf", L"nginx.conf", L"openssl_commands.txt", L"server.cnf"));
  std::string commands;
  for (const std::string& command : publish::certificate_commands()) commands += command + '\n';
  EXPECT_EQ(read_text(server(L"openssl_commands.txt")), commands);
  EXPECT_THAT(read_text(server(L"authority.cnf")), HasSubstr("nameConstraints = critical,permitted;DNS:localhost\n"));
  EXPECT_EQ(folder_tree(to_wide(folder_)), before);
}

TEST_F(Serve, TakesAnotherFolder) {
  const std::string folder = to_utf8(site_.path(L"elsewhere"));
  ASSERT_EQ(serve({"--no-start", "--folder=" + folder}).code, 0);
  EXPECT_TRUE(exists(site_.path(L"elsewhere\\nginx.conf")));
  EXPECT_FALSE(exists(site_.path(L"site-server")));
}

TEST_F(Serve, TellsWhichProgramIsMissing) {
  for (const auto& [installed, missing] :
       std::vector<std::pair<std::vector<std::wstring>, std::string>>{{{}, "openssl"}, {{L"openssl.exe"}, "nginx"}}) {
    SCOPED_TRACE(missing);
    install(installed);
    const CommandResult result = serve();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.data, report("no"));
    EXPECT_EQ(result.messages, "note: " + missing +
                                   " is not in PATH, and the server was not started; install it, or take the "
                                   "configuration as a pattern for another server\n");
  }
}

TEST_F(Serve, RunsNginxUntilThePersonStopsIt) {
  install({L"openssl.exe", L"nginx.exe"});
  stop_when_it_runs();
  const CommandResult result = serve();
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data, report("yes"));
  EXPECT_EQ(result.messages, "serving " + folder_ +
                                 " at https://localhost:8443/patch/; Ctrl+C ends it. Trust its authority for this "
                                 "user, if you have not yet:\n  certutil -user -addstore Root \"" +
                                 server_path("authority.pem") + "\"\n");
  std::string calls;
  for (const std::string& command : publish::certificate_commands()) calls += command + '\n';
  EXPECT_EQ(read_text(server(L"calls.txt")), calls + "nginx -p . -c nginx.conf -e error.log\n");
  EXPECT_FALSE(exists(server(L"authority.key")));  // nobody can make more certificates with it
  EXPECT_FALSE(exists(server(L"server.csr")));
  remove_file(server(L"running"));  // nginx has ended
}

TEST_F(Serve, KeepsCertificatesThatAreThere) {
  install({L"openssl.exe", L"nginx.exe"});
  for (const std::wstring name : {L"authority.pem", L"server.pem", L"server.key"}) write_text(server(name), "mine");
  stop_when_it_runs();
  ASSERT_EQ(serve().code, 0);
  EXPECT_EQ(read_text(server(L"authority.pem")), "mine");
  EXPECT_EQ(read_text(server(L"calls.txt")), "nginx -p . -c nginx.conf -e error.log\n");
}

TEST_F(Serve, SaysThatNginxEndedByItself) {
  install({L"openssl.exe", L"nginx.exe"});
  for (const std::wstring name : {L"authority.pem", L"server.pem", L"server.key", L"refuse"}) {
    write_text(server(name), "x");
  }
  const CommandResult result = serve();
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.data, IsEmpty());
  EXPECT_THAT(result.messages, testing::EndsWith("\nkvxpublish: nginx ended by itself with exit code 3; see " +
                                                 server_path("error.log") + "\n"));
}

TEST_F(Serve, SaysThatThereAreNoCertificates) {
  install({L"openssl.exe", L"nginx.exe"});
  write_text(server(L"refuse"), "x");
  const CommandResult result = serve();
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(site_.path(L"site-server")) +
                                 ": openssl did not make the certificates; see openssl.log there\n");
  EXPECT_THAT(read_text(server(L"calls.txt")), testing::Not(HasSubstr("nginx")));
}

TEST_F(Serve, StopsWhileCertificatesAreMade) {
  install({L"openssl.exe", L"nginx.exe"});
  write_text(server(L"wait"), "x");
  stop_when_it_runs();
  const CommandResult result = serve();
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: stopped before the server had started\n");
  EXPECT_EQ(read_text(server(L"calls.txt")), publish::certificate_commands()[0] + "\n");
  remove_file(server(L"running"));  // openssl has ended
}

TEST_F(Serve, RefusesWithOneClearLine) {
  const std::string none = to_utf8(site_.path(L"none"));
  const std::string dollar = to_utf8(site_.path(L"a$b"));
  ASSERT_TRUE(create_folders(to_wide(dollar)));
  struct Refusal {
    const char* what;
    std::vector<std::string> arguments;
    int code;
    std::string message;
  };
  for (const Refusal& refusal : std::vector<Refusal>{
           {"no folder", {none}, 1, none + ": there is no such folder"},
           {"a name that nginx reads otherwise",
            {dollar},
            1,
            dollar + ": nginx cannot serve a folder with \"$\" in its name; rename it"},
           {"two things at once",
            {folder_, "--print", "--no-start"},
            2,
            "--print excludes --no-start; see kvxpublish --help"},
       }) {
    SCOPED_TRACE(refusal.what);
    std::vector<std::string> arguments = {"serve"};
    arguments.insert(arguments.end(), refusal.arguments.begin(), refusal.arguments.end());
    const CommandResult result = kvxpublish(arguments);
    EXPECT_EQ(result.code, refusal.code);
    EXPECT_EQ(result.messages, "kvxpublish: " + refusal.message + "\n");
  }
  for (const std::string port : {"0", "65536", "x", "0x1F90", "-1"}) {
    const CommandResult result = kvxpublish({"serve", folder_, "--print", "--port=" + port});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.messages,
              "kvxpublish: --port: \"" + port + "\" is no number from 1 to 65535; see kvxpublish --help\n");
  }
}

TEST(LocalServer, QuotesPaths) {
  std::string text;
  publish::Failure failure;
  ASSERT_TRUE(publish::nginx_configuration(publish::path_of("/srv/a \"b\""), 1, text, failure));
  EXPECT_THAT(text, HasSubstr(R"(alias "/srv/a \"b\"/";)"));
  ASSERT_TRUE(publish::nginx_configuration(publish::path_of("C:/my site"), 1, text, failure));
  EXPECT_THAT(text, HasSubstr(R"(alias "C:/my site/files/";)"));
}

}  // namespace
}  // namespace kvx::test
