#!/usr/bin/env bash
# openssl_verifies.sh BUILD_FOLDER WORK_FOLDER
# Signatures made with keys of either PEM form verify under openssl, for the exact manifest only; openssl reads the keys
# that the tool makes; and the tool takes openssl's signatures as those of a vault.
set -euo pipefail
export KVX_BUILD=$1
work=$2
kvxpublish=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../../.." && pwd)/scripts/kvxpublish
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

# A key of the tool's own.
"$kvxpublish" keygen --out made >made.txt
openssl pkey -in made/private_key.pem -check -noout
openssl pkey -in made/private_key.pem -pubout | diff - made/public_key.pem
fingerprint=$(openssl pkey -pubin -in made/public_key.pem -outform DER | openssl dgst -sha256 -r | head -c 64)
point=$(openssl pkey -pubin -in made/public_key.pem -outform DER | tail -c 64 | hex)
grep -qx "fingerprint=$fingerprint" made.txt
grep -qE "^public_line=primary [0-9a-f]{16} $point\$" made.txt
"$kvxpublish" sign "site pkcs8" --key made/private_key.pem >/dev/null
signature_der "site pkcs8/manifest.sig" made.der
openssl dgst -sha256 -verify made/public_key.pem -signature made.der "site pkcs8/manifest.json"

# The tool knows openssl's keys, whole or half, and their public lines make its list of keys.
for key in pkcs8 sec1; do
  "$kvxpublish" pubkey $key.pem >whole.txt
  "$kvxpublish" pubkey $key.pub | diff - whole.txt
  sed -n 's/^public_line=//p' whole.txt >>public_keys.txt
done

# Signing in a vault: openssl gets the digest, or the manifest, and nothing else.
for key in pkcs8 sec1; do
  for form in digest manifest; do
    "$kvxpublish" pack "my gäme" --out vault --channel live --version 1 --exe game.exe --unsigned >/dev/null
    if [ $form = digest ]; then
      "$kvxpublish" digest vault --out digest.bin >/dev/null
      openssl dgst -sha256 -binary vault/manifest.json | cmp - digest.bin
      openssl pkeyutl -sign -inkey $key.pem -in digest.bin -out vault.der
    else
      openssl dgst -sha256 -sign $key.pem -out vault.der vault/manifest.json
    fi
    "$kvxpublish" attach vault --signature vault.der --public-keys public_keys.txt >attached.txt
    grep -qxF "$(grep ^key= $key.txt)" attached.txt
    signature_der vault/manifest.sig again.der
    openssl dgst -sha256 -verify $key.pub -signature again.der vault/manifest.json
  done
done
status=0
"$kvxpublish" attach vault --signature vault.der || status=$?
[ $status = 6 ]
