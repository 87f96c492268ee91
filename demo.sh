#!/usr/bin/env bash
# Shows the library's main job with real parts: the PC/SC daemon with a card, and pkcs11-tool as an application.
#   ./demo.sh [--card NAME]     with a simulated card (piv)
#   ./demo.sh --reader          with the card in your own reader; asks for its PIN, and leaves the PIN as it is
set -euo pipefail
. "$(dirname "$0")/scripts/usage.sh"
cd "$(dirname "$0")"

# What each simulated card is shown with, beyond lists and login.
declare -A steps_of=(
    [piv]="sign decrypt change_pin"
    [cardos]="sign verify decrypt encrypt change_pin"
    [cardos-v5]="sign verify decrypt encrypt change_pin"
    [ias]="sign decrypt change_pin"
    [atrust]="sign decrypt encrypt change_pin"
    [edu]="change_pin"
)

refuse() {
    usage
    echo "NAME is one of $(printf '%s\n' "${!steps_of[@]}" | sort | paste -sd ' ')"
    exit 2
}
card=piv
while [ $# -gt 0 ]; do
    case $1 in
    --reader) card= && shift ;;
    --card) card=${2:-?} && shift $(($# > 1 ? 2 : 1)) ;;
    *) refuse ;;
    esac
done
steps=${steps_of[${card:-piv}]-}
[ -n "$steps" ] || refuse

scripts/install-deps.sh build demo
[[ $steps != *encrypt* ]] || scripts/install-deps.sh demo-encrypt
. scripts/lib.sh
. scripts/tool.sh

number=0
# step TEXT COMMAND...: says what is being done, shows what the command prints, and stops when it fails.
step() {
    local text=$1 status
    number=$((number + 1))
    printf '\n%d. %s\n' "$number" "$text"
    shift
    capture "$@"
    # pkcs11-tool asks for an attribute of a later Cryptoki version, and carries on without it.
    sed -n '/^warning: .*(ALWAYS_AUTHENTICATE)/{n;d};s/^/   | /p' "$WORK/output"
    [ "$status" -eq 0 ] || fail "step $number ($text) ended with status $status"
}

show_sign() {
    echo "Quarvel signed this on $(date)." >"$WORK/letter"
    step "Sign the SHA-256 DigestInfo of a file on the card (RSA-PKCS)" sign_digest_info
    step "Verify the signature with openssl and the card's certificate" \
        openssl dgst -sha256 -verify "$WORK/public.pem" -signature "$WORK/signature" "$WORK/letter"
}

show_verify() {
    step "Verify the signature on the card, with the public key that is in it" \
        tool --login --pin env:QUARVEL_PIN --verify --mechanism RSA-PKCS --id "$key" \
        --input-file "$WORK/digest-info" --signature-file "$WORK/signature"
}

# pkcs11-tool encrypts with secret keys only.
encrypt_on_card() {
    /usr/bin/python3 - "$MODULE" "$slot" "$key" "$WORK/secret" "$WORK/encrypted" <<'PYTHON'
import os, sys
from PyKCS11 import *

module, slot, key, plain, encrypted = sys.argv[1:]
library = PyKCS11Lib()
library.load(module)
session = library.openSession(int(slot, 0))
session.login(os.environ["QUARVEL_PIN"])
keys = session.findObjects([(CKA_CLASS, CKO_PUBLIC_KEY), (CKA_ID, bytes.fromhex(key))])
result = bytes(session.encrypt(keys[0], open(plain, "rb").read(), Mechanism(CKM_RSA_PKCS, None)))
open(encrypted, "wb").write(result)
print(len(result), "bytes")
PYTHON
}

show_encrypt() {
    step "Encrypt the message on the card, with the public key that is in it (PyKCS11)" encrypt_on_card
    step "Decrypt it on the card" decrypt_on_card
}

show_decrypt() {
    step "Encrypt a message to the card's certificate with openssl" encrypt_for_card
    step "Decrypt it on the card" decrypt_on_card
}

show_change_pin() {
    step "Change the PIN" change_pin
    step "Log in with the new PIN" use_new_pin
    step "Change the PIN back" change_pin_back
}

build_desktop
slot=
if [ -n "$card" ]; then
    start_pcsc virtual
    export QUARVEL_PIN=123456
    start_card "$card" --pin "$QUARVEL_PIN"
    find_slot
else
    start_pcsc
    slot=$(slots_with_token | grep -vF "$READER" | head -n 1 | cut -d ' ' -f 1 || true)
    [ -n "$slot" ] || fail "no card that the library knows is in a reader"
    read -r -s -p "PIN of the card in $(slots_with_token | sed -n "s/^$slot //p"): " QUARVEL_PIN
    echo
    export QUARVEL_PIN
    steps=${steps/change_pin/}
fi

step "List the slots" tool --list-slots
step "List the token's mechanisms" tool --list-mechanisms
step "Log in and list all objects" tool --login --pin env:QUARVEL_PIN --list-objects
key=$(sed -n '/Private Key Object; RSA/,/ID:/s/.*ID: *//p' "$WORK/output" | head -n 1)
[ -z "$key" ] || step "Read the certificate of key $key" read_certificate
for show in $steps; do
    "show_$show"
done
printf '\nAll steps passed.\n'
