#!/bin/sh
# Makes a signed copy of a Windows library: sign_library.sh LIBRARY FOLDER
#
# Leaves in FOLDER: signed_library.dll, tampered_library.dll (the same with one byte changed behind
# the signer's back) and signer_thumbprint.txt (the signer's SHA-1 in upper-case digits, no line end).
# The signer is called "Korvane Test Signer"; its authority and its keys are thrown away.
set -eu
library=$1
folder=$2
keys=$(mktemp -d)
trap 'rm -rf "$keys"' EXIT

openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -subj '/CN=Korvane Test Authority' \
  -keyout "$keys/authority.key" -out "$keys/authority.pem" 2>/dev/null
openssl req -newkey rsa:2048 -nodes -subj '/O=Korvane Tests/CN=Korvane Test Signer' \
  -keyout "$keys/signer.key" -out "$keys/signer.csr" 2>/dev/null
printf 'extendedKeyUsage=codeSigning\n' >"$keys/usage"
openssl x509 -req -in "$keys/signer.csr" -CA "$keys/authority.pem" -CAkey "$keys/authority.key" \
  -CAcreateserial -days 3650 -extfile "$keys/usage" -out "$keys/signer.pem" 2>/dev/null
cat "$keys/signer.pem" "$keys/authority.pem" >"$keys/chain.pem"

rm -f "$folder/signed_library.dll"
osslsigncode sign -certs "$keys/chain.pem" -key "$keys/signer.key" -h sha256 \
  -in "$library" -out "$folder/signed_library.dll" >/dev/null

# A letter of the old program's message, which every library begins with.
cp "$folder/signed_library.dll" "$folder/tampered_library.dll"
printf '#' | dd of="$folder/tampered_library.dll" bs=1 seek=80 conv=notrunc 2>/dev/null

openssl x509 -in "$keys/signer.pem" -noout -fingerprint -sha1 |
  sed 's/.*=//' | tr -d ':\n' >"$folder/signer_thumbprint.txt"
