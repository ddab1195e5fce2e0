#!/usr/bin/env bash
# The launcher at work: demo.sh [--show]
#
# Builds it, publishes a sample release on an HTTPS server of its own on this machine, and lets the launcher install the
# release, update it to a second one, and start the game when the server is gone. Prints each run's exit code and result
# file, leaves pictures in build/demo/, and ends with an error if anything is not as it should be.
# The windows are on a display of their own; with --show they are on yours.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD

case ${1:-} in
  '' | --inner) ;;
  --show)
    if [ -z "${DISPLAY:-}" ]; then
      echo "demo.sh: --show needs a display, and DISPLAY is not set" >&2
      exit 2
    fi ;;
  *) echo "usage: demo.sh [--show]" >&2; exit 2 ;;
esac
if [ "${1:-}" != --inner ]; then
  scripts/install_packages.sh build test demo
  scripts/build.sh KVXLauncher sample_game trust_ca
  [ "${1:-}" = --show ] || exec scripts/with_display.sh "$root/scripts/demo.sh" --inner
fi

build=$root/build/mingw-release
demo=$root/build/demo
install=$demo/KVX
export KVX_WINEPREFIX=$demo/wineprefix
PATH=$PATH:/usr/sbin
wait_limit_seconds=120

nginx_pid=''
launcher_pid=''
stop_all() {
  [ -z "$launcher_pid" ] || kill "$launcher_pid" 2>/dev/null || true
  [ -z "$nginx_pid" ] || kill "$nginx_pid" 2>/dev/null || true
  WINEPREFIX=$KVX_WINEPREFIX wineserver -k 2>/dev/null || true
}
trap stop_all EXIT
trap 'exit 130' INT TERM

step() { printf '\n== %s\n' "$*"; }
fail() {
  printf 'demo.sh: %s\n' "$*" >&2
  [ ! -e "$install/.kvx_patch/launcher.log" ] || tail -n 20 "$install/.kvx_patch/launcher.log" >&2
  exit 1
}
# until_true WHAT COMMAND...: waits until the command succeeds.
until_true() {
  local what=$1 deadline=$((SECONDS + wait_limit_seconds))
  shift
  until "$@"; do
    [ $SECONDS -lt $deadline ] || fail "waited $wait_limit_seconds seconds in vain for $what"
    sleep 0.05
  done
}

# ---- The sample game -------------------------------------------------------------------------------------------------

random_file() { mkdir -p "$(dirname "$2")"; head -c "$1" /dev/urandom >"$2"; }

make_first_release() {
  local game=$demo/game-1.0 i
  mkdir -p "$game/bin"
  cp "$build/sample_game.exe" "$game/bin/KVX sample.exe"
  for i in $(seq 1 240); do random_file $((i * i * 2 + 1)) "$game/data/pack $((i % 12))/piece_$i.bin"; done
  for i in 1 2 3 4 5 6; do random_file 2500000 "$game/data/large/world_$i.pak"; done
  random_file 700000 "$game/Übersetzungen/日本語/テキスト 1.dat"
  random_file 300000 "$game/Übersetzungen/Français/été.dat"
  random_file 100 "$game/read me.txt"
  : >"$game/data/empty.cfg"
  for i in 1 2 3; do cp "$game/data/large/world_1.pak" "$game/data/same content $i.pak"; done
}

make_second_release() {
  local game=$demo/game-1.1 i
  cp -a "$demo/game-1.0" "$game"
  for i in $(seq 10 10 200); do random_file $((i * 300)) "$game/data/pack $((i % 12))/piece_$i.bin"; done
  for i in 1 2 3 4; do random_file $((i * 200000)) "$game/data/новое/added $i.bin"; done
  random_file 2000000 "$game/data/large/world_2.pak"
  rm "$game/read me.txt" "$game/Übersetzungen/Français/été.dat" "$game/data/same content 2.pak"
  rmdir "$game/Übersetzungen/Français"  # a release has only files
}

publish() {  # publish VERSION ARGUMENT...
  local version=$1
  shift
  echo "Sample release $version" >"$demo/notes-$version.txt"
  scripts/kvxpublish pack "$demo/game-$version" --out "$demo/site" --channel live --version "$version" \
    --exe "bin/KVX sample.exe" --arg=--seconds --arg=1.5 --arg="two words" --arg="Größe" \
    --notes "$demo/notes-$version.txt" --key "$root/keys/development/primary.pem" "$@"
}

# ---- The server ------------------------------------------------------------------------------------------------------

make_certificates() {
  cd "$demo/tls"
  # A name of its own, because certificates of earlier demos stay trusted in the prefix.
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj "/CN=KVX demo CA $(date +%s) $$" \
    -keyout ca.key -out ca.pem 2>/dev/null
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=localhost" \
    -keyout server.key -out server.csr 2>/dev/null
  # Wine compares names only, not addresses.
  printf 'subjectAltName=DNS:localhost\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n' >server.ext
  openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 30 -extfile server.ext \
    -out server.pem 2>/dev/null
  rm ca.key
  cd "$root"
}

port_is_open() { (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }

start_server() {
  for _ in $(seq 20); do
    port=$((20000 + RANDOM % 20000))
    ! port_is_open || continue
    cat >"$demo/nginx/nginx.conf" <<CONF
daemon off;
master_process off;
pid $demo/nginx/nginx.pid;
error_log $demo/nginx/error.log;
events { worker_connections 64; }
http {
  access_log $demo/nginx/access.log;
  client_body_temp_path $demo/nginx/body;
  proxy_temp_path $demo/nginx/proxy;
  fastcgi_temp_path $demo/nginx/fastcgi;
  uwsgi_temp_path $demo/nginx/uwsgi;
  scgi_temp_path $demo/nginx/scgi;
  gzip off;
  types { }
  default_type application/octet-stream;
  # Slow enough that the window can be seen at work.
  limit_rate 1000k;
  server {
    listen 127.0.0.1:$port ssl;
    ssl_certificate $demo/tls/server.pem;
    ssl_certificate_key $demo/tls/server.key;
    location /patch/ { alias $demo/site/; add_header Cache-Control no-cache; }
    location /patch/files/ { alias $demo/site/files/; add_header Cache-Control "public, max-age=31536000, immutable"; }
  }
}
CONF
    nginx -p "$demo/nginx" -e "$demo/nginx/error.log" -c "$demo/nginx/nginx.conf" &
    nginx_pid=$!
    # Whatever else listens there keeps nginx from writing its pid file.
    until [ -s "$demo/nginx/nginx.pid" ] && port_is_open; do
      kill -0 "$nginx_pid" 2>/dev/null || continue 2
      sleep 0.05
    done
    return
  done
  fail "nginx did not start: $(tail -n 3 "$demo/nginx/error.log")"
}

stop_server() {
  kill "$nginx_pid"
  wait "$nginx_pid" 2>/dev/null || true
  nginx_pid=
}

blobs_served() {
  [ "$(grep -c 'GET /patch/files/' "$demo/nginx/access.log")" -ge "$1" ] && return 0
  launcher_runs || fail "the launcher ended without downloading"
  return 1
}

# ---- The launcher's windows ------------------------------------------------------------------------------------------

windows_named() { xdotool search --onlyvisible --name "^$1\$" 2>/dev/null || true; }
window_is_there() { [ -n "$(windows_named "$1")" ]; }
no_window_is_there() { [ -z "$(windows_named "$1")" ]; }

# The prompt has the main window's title, and comes second.
find_prompt() {
  local id
  for id in $(windows_named "KVX Launcher"); do
    if [ "$id" != "$main_window" ]; then
      prompt=$id
      return 0
    fi
  done
  launcher_runs || fail "the launcher ended without the prompt"
  return 1
}

launcher_runs() { kill -0 "$launcher_pid" 2>/dev/null; }

# picture WINDOW FILE: with its frame, once something is drawn in it.
picture_has_content() {
  import -silent -frame -window "$1" "$demo/$2" 2>/dev/null && [ "$(identify -format %k "$demo/$2")" -gt 20 ]
}
picture() {
  until_true "a picture of the window" picture_has_content "$1" "$2"
  echo "picture: build/demo/$2"
}

press_default_button() {
  until_true "the prompt to come to the front" activate "$prompt"
  xdotool key Return
  until_true "the prompt to close" prompt_is_gone
}
activate() {
  xdotool windowactivate "$1" 2>/dev/null || xdotool windowfocus "$1" 2>/dev/null || true
  [ "$(xdotool getactivewindow 2>/dev/null || xdotool getwindowfocus 2>/dev/null)" = "$1" ]
}
prompt_is_gone() { [[ " $(windows_named "KVX Launcher" | tr '\n' ' ')" != *" $prompt "* ]]; }

# ---- Runs ------------------------------------------------------------------------------------------------------------

start_launcher() {
  rm -f "$install/game_started.txt"
  scripts/wine_run.sh "$install/KVXLauncher.exe" "--base-url=https://localhost:$port/patch/" &
  launcher_pid=$!
  until_true "the launcher's window" main_window_appears
}
main_window_appears() {
  main_window=$(windows_named "KVX Launcher" | head -n 1)
  [ -n "$main_window" ] && return 0
  launcher_runs || fail "the launcher ended without a window"
  return 1
}

game_has_started() { [ -e "$install/game_started.txt" ]; }

# finish_run CODE RESULT: waits for the launcher and the game; RESULT is the beginning of the result file.
finish_run() {
  local expected_code=$1 expected_result=$2 code=0 result
  wait "$launcher_pid" || code=$?
  launcher_pid=
  echo "exit code: $code"
  [ -e "$install/.kvx_patch/last_result.txt" ] || fail "there is no last_result.txt"
  result=$(cat "$install/.kvx_patch/last_result.txt")
  printf 'last_result.txt:\n%s\n' "$result" | sed '2,$s/^/  /'
  [ "$code" = "$expected_code" ] || fail "the exit code should be $expected_code"
  [[ "$result" = "$expected_result"* ]] || fail "last_result.txt should begin with: $expected_result"

  until_true "the game to start" game_has_started
  local record
  record=$(cat "$install/game_started.txt")
  [[ "$record" = "directory="*'\build\demo\KVX'$'\nargument=--seconds\nargument=1.5\nargument=two words\nargument=Größe' ]] ||
    fail "the game was started in another way: $record"
  echo "the game was started with its arguments"
  until_true "the game to end" no_window_is_there "KVX sample game"
}

check_installed() {  # check_installed VERSION: exactly the release's files, beside what is the launcher's and the game's own
  diff -r --brief --exclude=KVXLauncher.exe --exclude=.kvx_patch --exclude=game_started.txt "$demo/game-$1" "$install" ||
    fail "the folder does not hold release $1"
  echo "the folder holds exactly the files of release $1"
}

# ---- The demo --------------------------------------------------------------------------------------------------------

mkdir -p "$demo"
find "$demo" -mindepth 1 -maxdepth 1 ! -name wineprefix -exec rm -rf {} +
mkdir -p "$demo/site" "$demo/tls" "$demo/nginx" "$install"

step "Release 1.0"
make_first_release
publish 1.0
make_certificates
start_server
scripts/wine_run.sh "$build/trust_ca.exe" "Z:$demo/tls/ca.pem"
echo "served at https://localhost:$port/patch/"

step "First install"
cp "$build/KVXLauncher.exe" "$install/"
start_launcher
until_true "the question whether to install" find_prompt
picture "$prompt" prompt.png
press_default_button
until_true "some files to arrive" blobs_served 3
picture "$main_window" window.png
launcher_runs || fail "the picture came too late: the launcher has already ended"
finish_run 0 $'code=0\nlaunched=1\nlauncher=1.0.0\nmessage=updated to 1.0'
check_installed 1.0

step "Release 1.1"
make_second_release
publish 1.1 --remove "read me.txt" --remove "Übersetzungen/Français/été.dat" --remove "data/same content 2.pak"

step "Update"
start_launcher
finish_run 0 $'code=0\nlaunched=1\nlauncher=1.0.0\nmessage=updated to 1.1'
rmdir "$install/Übersetzungen/Français"  # launchers leave empty folders behind
check_installed 1.1

step "Start without the server"
stop_server
start_launcher
until_true "the offer to start the installed game" find_prompt
picture "$prompt" offline.png
press_default_button
finish_run 10 $'code=10\nlaunched=1\nlauncher=1.0.0\nmessage=Could not connect to the update server.'
check_installed 1.1

step "All three runs went as they should; the pictures are in build/demo/"
