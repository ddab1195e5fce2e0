#!/usr/bin/env bash
# Runs a command beside an update server of its own: nginx_site.sh COMMAND [ARGUMENT...]
# The server is nginx with TLS on free ports of 127.0.0.1, for the host name localhost, with a certificate authority made
# for the occasion. The command finds in its environment:
#   KVX_SITE_URL        base URL, TLS 1.2 and 1.3
#   KVX_SITE_TLS12_URL  the same site with TLS 1.2 alone, KVX_SITE_TLS11_URL with TLS 1.1 alone
#   KVX_SITE_FOLDER     the served folder, as a Windows path
#   KVX_SITE_AUTHORITY  the authority's certificate (DER), as a Windows path
# Ends with the command's exit code. Everything but the command's own doing is gone afterwards.
set -euo pipefail

work=$(mktemp -d)
server=
# shellcheck disable=SC2317  # the trap calls it
finish() {
  if [ -n "$server" ]; then
    kill "$server" 2>/dev/null || true
    wait "$server" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap finish EXIT

windows_path() { printf 'Z:%s' "${1//\//\\}"; }

make_certificates() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj "/CN=Authority of test run $$-$RANDOM" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign" \
    -keyout authority.key -out authority.pem
  openssl x509 -in authority.pem -outform DER -out authority.der
  # RSA, because TLS 1.1 has no use for this kind of EC certificate on every system.
  openssl req -newkey rsa:2048 -nodes -subj "/CN=localhost" -keyout site.key -out site.csr
  openssl x509 -req -in site.csr -CA authority.pem -CAkey authority.key -CAcreateserial -days 2 -out site.pem \
    -extfile <(printf 'subjectAltName=DNS:localhost\nextendedKeyUsage=serverAuth\n')
}

server_block() { # PORT PROTOCOLS
  cat <<BLOCK
  server {
    listen 127.0.0.1:$1 ssl;
    ssl_protocols $2;
    ssl_ciphers DEFAULT:@SECLEVEL=0;
    ssl_certificate site.pem;
    ssl_certificate_key site.key;
    root site;
    location / { add_header Cache-Control "no-cache"; }
    location ~ (^|/)files/ { add_header Cache-Control "public, max-age=31536000, immutable"; }
    location = /redirect { return 302 \$arg_to; }
  }
BLOCK
}

write_configuration() { # FIRST_PORT
  cat > nginx.conf <<CONFIGURATION
daemon off;
master_process off;
pid nginx.pid;
error_log stderr error;
events {}
http {
  access_log off;
  gzip off;
  default_type application/octet-stream;
  client_body_temp_path body;
  proxy_temp_path proxy;
  fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi;
  scgi_temp_path scgi;
$(server_block "$1" "TLSv1.2 TLSv1.3")
$(server_block "$(($1 + 1))" "TLSv1.2")
$(server_block "$(($1 + 2))" "TLSv1.1")
}
CONFIGURATION
}

listens() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# True once the server answers, false when it ended because a port was taken.
start_server() { # FIRST_PORT
  write_configuration "$1"
  rm -f nginx.pid
  nginx -p "$work" -c "$work/nginx.conf" -e stderr 2>nginx.log &
  server=$!
  for _ in $(seq 200); do
    kill -0 "$server" 2>/dev/null || return 1
    # Whatever else listens there keeps nginx from writing its pid file.
    [ -s nginx.pid ] && listens "$1" && listens "$(($1 + 2))" && return 0
    sleep 0.05
  done
  return 1
}

cd "$work"
mkdir site
make_certificates 2>openssl.log || { cat openssl.log >&2; exit 1; }
for _ in $(seq 10); do
  first_port=$((20000 + RANDOM % 10000))
  if start_server "$first_port"; then break; fi
  kill "$server" 2>/dev/null || true
  wait "$server" 2>/dev/null || true
  server=
done
[ -n "$server" ] || { cat nginx.log >&2; exit 1; }
cd - >/dev/null

export KVX_SITE_URL=https://localhost:$first_port/
export KVX_SITE_TLS12_URL=https://localhost:$((first_port + 1))/
export KVX_SITE_TLS11_URL=https://localhost:$((first_port + 2))/
KVX_SITE_FOLDER=$(windows_path "$work/site")
KVX_SITE_AUTHORITY=$(windows_path "$work/authority.der")
export KVX_SITE_FOLDER KVX_SITE_AUTHORITY
status=0
"$@" || status=$?
exit "$status"
