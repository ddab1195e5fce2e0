#!/usr/bin/env bash
# openssl_verifies.sh BUILD_FOLDER WORK_FOLDER
# Signatures made with keys of either PEM form verify under openssl, for the exact manifest only.
set -euo pipefail
export KVX_BUILD=$1
work=$2
kvxpublish=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/kvxpublish
rm -rf "$work"; mkdir -p "$work/my gäme"; cd "$work"
printf 'game' >"my gäme/game.exe"

openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out pkcs8.pem 2>/dev/null
openssl ecparam -name prime256v1 -genkey -out sec1.pem 2>/dev/null

hex() { od -An -v -tx1 | tr -d ' \n'; }

signature_der() {  # signature_der SIGNATURE_FILE DER_FILE
  {
    echo "asn1=SEQUENCE:rs"
    echo "[rs]"
    echo "r=INTEGER:0x$(tail -c +17 "$1" | head -c 32 | hex)"
    echo "s=INTEGER:0x$(tail -c +49 "$1" | head -c 32 | hex)"
  } >rs.conf
  openssl asn1parse -genconf rs.conf -noout -out "$2"
}

for key in pkcs8 sec1; do
  site="site $key"
  "$kvxpublish" pack "my gäme" --out "$site" --channel live --version 1 --exe game.exe --key $key.pem >"$key.txt"
  openssl pkey -in $key.pem -pubout -out $key.pub
  point=$(openssl pkey -pubin -in $key.pub -outform DER | tail -c 64 | hex)
  identifier=$(printf '%s' "$point" | sed 's/../\\x&/g' | xargs -0 printf '%b' | openssl dgst -sha256 -r | head -c 16)

  [ "$(stat -c %s "$site/manifest.sig")" = 80 ]
  [ "$(head -c 8 "$site/manifest.sig")" = KVXSIG01 ]
  [ "$(tail -c +9 "$site/manifest.sig" | head -c 8 | hex)" = "$identifier" ]
  grep -qx "key=$identifier" "$key.txt"
  signature_der "$site/manifest.sig" $key.der
  openssl dgst -sha256 -verify $key.pub -signature $key.der "$site/manifest.json"
  { cat "$site/manifest.json"; echo; } >changed.json
  if openssl dgst -sha256 -verify $key.pub -signature $key.der changed.json; then exit 1; fi
done
