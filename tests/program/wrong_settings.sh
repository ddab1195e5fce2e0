#!/usr/bin/env bash
# wrong_settings.sh SOURCE WORK: each wrong value of a cache variable stops the configuration with a message that says
# where it is wrong.
set -euo pipefail
source=$1
work=$2.configure
rm -rf "$work"; mkdir -p "$work"
unset CMAKE_CXX_COMPILER_LAUNCHER
cd "$source"
cmake --preset mingw-release -B "$work/build" -DKVX_BUILD_TESTS=OFF >/dev/null

cases=0
failures=0
# CMake wraps long messages; on one line they can be compared.
configure() { cmake "$@" "$work/build" 2>&1 | tr -s ' \n' ' '; return "${PIPESTATUS[0]}"; }
stops() {  # stops WHAT MESSAGE CMAKE_ARGUMENT...
  local what=$1 message=$2 output
  shift 2
  cases=$((cases + 1))
  if output=$(configure "$@"); then
    echo "$what: the configuration went through" >&2
    failures=1
  elif [[ $output != *"$message"* ]]; then
    printf '%s: expected "%s" in:\n%s\n' "$what" "$message" "$output" >&2
    failures=1
  fi
}
passes() {  # passes WHAT CMAKE_ARGUMENT...
  local what=$1 output
  shift
  cases=$((cases + 1))
  if ! output=$(configure "$@"); then
    printf '%s: the configuration stopped:\n%s\n' "$what" "$output" >&2
    failures=1
  fi
}

digits() { printf "%.${1}s" "$(printf 'a5%.0s' $(seq 80))"; }
id=0011223344556677
xy=$(digits 128)
primary="primary $id $xy"
backup="backup $id $xy"
keys=$work/keys.txt

keys_stop() {  # keys_stop WHAT MESSAGE CONTENT: content with \n and the like, as printf takes it
  # shellcheck disable=SC2059
  printf "$3" >"$keys"
  stops "$1" "KVX_PUBLIC_KEYS: $keys, $2" -DKVX_PUBLIC_KEYS="$keys"
}

keys_stop "empty file" "line 1 is missing" ''
keys_stop "one line" "line 2 is missing" "$primary\n"
keys_stop "one line without an end" "line 2 is missing" "$primary"
keys_stop "backup first" "line 1 is not \"primary\"" "$backup\n$primary\n"
keys_stop "primary twice" "line 2 is not \"backup\"" "$primary\n$primary\n"
keys_stop "three keys" "line 3: there must be two lines only" "$primary\n$backup\n$backup\n"
keys_stop "an empty line at the end" "line 3: there must be two lines only" "$primary\n$backup\n\n"
keys_stop "an empty line first" "line 1 is not" "\n$primary\n$backup\n"
keys_stop "an empty line between" "line 2 is not" "$primary\n\n$backup\n"
keys_stop "a comment" "line 1 is not" "# my keys\n$primary\n$backup\n"
keys_stop "Windows line ends" "line 1" "$primary\r\n$backup\r\n"
keys_stop "a byte-order mark" "line 1 is not" "\xEF\xBB\xBF$primary\n$backup\n"
keys_stop "another name" "line 1 is not" "Primary $id $xy\n$backup\n"
keys_stop "no name" "line 1 is not" "$id $xy\n$backup\n"
keys_stop "a blank first" "line 1 is not" " $primary\n$backup\n"
keys_stop "a blank last" "line 2 is not" "$primary\n$backup \n"
keys_stop "two blanks" "line 1 is not" "primary  $id $xy\n$backup\n"
keys_stop "a tab" "line 2 is not" "$primary\nbackup\t$id $xy\n"
keys_stop "identifier of 15 digits" "line 1 is not" "primary $(digits 15) $xy\n$backup\n"
keys_stop "identifier of 17 digits" "line 2 is not" "$primary\nbackup $(digits 17) $xy\n"
keys_stop "a digit moved from the point to the identifier" "line 1: the key identifier has not 16 hex digits" \
  "primary $(digits 17) $(digits 127)\n$backup\n"
keys_stop "identifier in upper case" "line 1 is not" "primary 00112233445566FF $xy\n$backup\n"
keys_stop "point in upper case" "line 2 is not" "$primary\nbackup $id ${xy^^}\n"
keys_stop "point of 127 digits" "line 1 is not" "primary $id $(digits 127)\n$backup\n"
keys_stop "point of 129 digits" "line 2 is not" "$primary\nbackup $id $(digits 129)\n"
keys_stop "a letter that is no hex digit" "line 2 is not" "$primary\nbackup $id g${xy:1}\n"
keys_stop "a fourth word" "line 1 is not" "$primary x\n$backup\n"
keys_stop "a backslash at a line's end" "line 1" "$primary\\\\\n$backup\n"
keys_stop "a semicolon" "line 2" "$primary\nbackup $id ;${xy:1}\n"
keys_stop "a bracket" "line 1" "primary [${id:1} $xy\n$backup\n"
stops "no such file" "KVX_PUBLIC_KEYS: there is no file $work/none.txt" -DKVX_PUBLIC_KEYS="$work/none.txt"
stops "a folder" "KVX_PUBLIC_KEYS: there is no file $work" -DKVX_PUBLIC_KEYS="$work"

own=$work/own_keys.txt
development=$source/keys/development/public_keys.txt
printf '%s\n%s\n' "$primary" "$backup" >"$own"
passes "own keys" -DKVX_PUBLIC_KEYS="$own"
printf '%s\n%s' "$primary" "$backup" >"$keys"
passes "own keys, the last line without an end" -DKVX_PUBLIC_KEYS="$keys"

url=-DKVX_BASE_URL=https://own.example/patch/
placeholder=-DKVX_BASE_URL=https://update.kvx.example/patch/
stops "publisher's build with the development keys" "holds a development key" \
  -DKVX_PUBLISHER_BUILD=ON "$url" -DKVX_PUBLIC_KEYS="$development"
cp "$development" "$keys"
stops "publisher's build with a copy of the development keys" "holds a development key" \
  -DKVX_PUBLISHER_BUILD=ON "$url" -DKVX_PUBLIC_KEYS="$keys"
{ printf '%s\n' "$primary"; printf 'backup %s %s\n' "$id" "$(head -1 "$development" | cut -d' ' -f3)"; } >"$keys"
stops "publisher's build with one development key under other names" "holds a development key" \
  -DKVX_PUBLISHER_BUILD=ON "$url" -DKVX_PUBLIC_KEYS="$keys"
stops "publisher's build with the placeholder" "\"https://update.kvx.example/patch/\" is only a placeholder" \
  -DKVX_PUBLISHER_BUILD=ON "$placeholder" -DKVX_PUBLIC_KEYS="$own"
stops "publisher's build with the placeholder without its slash" "\"https://update.kvx.example/patch\" is only a placeholder" \
  -DKVX_PUBLISHER_BUILD=ON "${placeholder%/}" -DKVX_PUBLIC_KEYS="$own"
url_stops() {  # url_stops WHAT REASON URL: for a publisher's build
  stops "publisher's build with $1" "KVX_PUBLISHER_BUILD: KVX_BASE_URL \"$3\" $2. Name your server" \
    -DKVX_PUBLISHER_BUILD=ON -DKVX_BASE_URL="$3" -DKVX_PUBLIC_KEYS="$own"
}
url_stops "no URL" "is empty" ''
url_stops "plain HTTP" "is plain HTTP; players are served over HTTPS only" http://own.example/patch/
url_stops "plain HTTP on this machine" "is plain HTTP; players are served over HTTPS only" http://127.0.0.1/patch/
url_stops "another scheme" "does not begin with https://" ftp://own.example/patch/
url_stops "no scheme" "does not begin with https://" own.example/patch/
for host in '' :443 user@own.example a:b:443 '[::1' '::1' own.example:x own.example:; do
  url_stops "host \"$host\"" "has no valid host" "https://$host/patch/"
done
for port in 0 65536 99999999999999999999; do
  url_stops "port $port" "has a port that is not 1 to 65535" "https://own.example:$port/patch/"
done
for text in 'a b' 'a"b' 'a\b' $'a\tb' $'a\x01b' $'a\x7fb'; do
  url_stops "\"$text\"" "holds a blank, a quote, a backslash or a control character" "https://own.example/$text/"
done
url_stops "a query" "has a query or a fragment; the names of files are added to its end" "https://own.example/patch?a=/"
url_stops "a fragment" "has a query or a fragment; the names of files are added to its end" "https://own.example/patch#a/"
stops "a URL that is not UTF-8" "is not UTF-8" -DKVX_BASE_URL=$'https://own.example/\xff/'
for valid in HTTPS://own.example https://own.example:8443/a/b/ 'https://[2001:db8::1]:443/' 'https://öwn.example/a;b%20c/'; do
  passes "publisher's build with $valid" -DKVX_PUBLISHER_BUILD=ON -DKVX_BASE_URL="$valid" -DKVX_PUBLIC_KEYS="$own"
done
passes "publisher's build" -DKVX_PUBLISHER_BUILD=ON "$url" -DKVX_PUBLIC_KEYS="$own"

for version in '' 1.0-beta v1 1. .1 1..2 1.2.3.4.5 "1 0"; do
  stops "version \"$version\"" "KVX_VERSION: \"$version\" is not one to four numbers with dots" -DKVX_VERSION="$version"
done
stops "a version too large for the version record" "KVX_VERSION: 65536 in \"1.65536\"" -DKVX_VERSION=1.65536
passes "a short version" -DKVX_VERSION=7

echo "$cases cases"
exit $failures
