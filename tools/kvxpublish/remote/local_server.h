// The files that nginx needs to hand out a site over HTTPS on this machine: its configuration, and what openssl needs
// to make an authority and a certificate for the name localhost. They lie in a folder of their own, which is nginx's
// working folder too.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/files.h"

namespace kvx::publish {

// Names in the server's folder.
constexpr const char* server_configuration_name = "nginx.conf";
constexpr const char* server_authority_name = "authority.pem";

// The commands that make the certificates when run in the server's folder, one after the other. None has an argument
// that would need quotes. They stand in openssl_commands.txt as well, a line each.
[[nodiscard]] const std::vector<std::string>& certificate_commands();

// The base URL at which the site appears.
[[nodiscard]] std::string local_url(uint16_t port);

// The configuration for the site in that folder, a full path. Relative names in it are below nginx's prefix. nginx
// cannot be told of a name with "$", which is a failure.
[[nodiscard]] bool nginx_configuration(const fs::path& site, uint16_t port, std::string& text, Failure& failure);

// Writes everything but the certificates. `needs_certificates` tells whether there are none yet; those that are there
// stay, so that whoever trusts the authority need not do so again.
[[nodiscard]] bool write_server_folder(const fs::path& folder, const std::string& configuration,
                                       bool& needs_certificates, Failure& failure);

// After the commands have run: the authority's key goes, so that nothing else can ever be made with it. False when a
// certificate was not made.
[[nodiscard]] bool finish_certificates(const fs::path& folder, Failure& failure);

}  // namespace kvx::publish
