# What the scripts that use a card do with pkcs11-tool and openssl (source it after lib.sh). Uses QUARVEL_PIN, and slot and key:
# the slot ID and the key ID (hexadecimal) that are spoken of; files stand in WORK.

tool() {
    pkcs11-tool --module "$MODULE" ${slot:+--slot "$slot"} "$@"
}

# The slots with a token as "ID reader name" lines.
slots_with_token() {
    tool --list-token-slots | sed -nE 's/^Slot [0-9]+ \((0x[0-9a-f]+)\): (.*)/\1 \2/p'
}

# Sets slot to the slot ID of the card in the virtual reader. The service shows a card a moment after it has powered it.
find_slot() {
    local try
    for try in $(seq 100); do
        slot=$(slots_with_token | grep -F "$READER" | head -n 1 | cut -d ' ' -f 1 || true)
        [ -z "$slot" ] || return 0
        sleep 0.1
    done
    fail "the library does not show the card in the virtual reader"
}

read_certificate() {
    tool --read-object --type cert --id "$key" --output-file "$WORK/certificate.der"
    openssl x509 -inform DER -in "$WORK/certificate.der" -out "$WORK/certificate.pem"
    openssl x509 -in "$WORK/certificate.pem" -noout -subject
    openssl x509 -in "$WORK/certificate.pem" -noout -pubkey >"$WORK/public.pem"
}

export QUARVEL_NEW_PIN=654321

change_pin() {
    tool --change-pin --pin env:QUARVEL_PIN --new-pin env:QUARVEL_NEW_PIN
}

use_new_pin() {
    tool --login --pin env:QUARVEL_NEW_PIN --list-objects --type privkey
}

change_pin_back() {
    tool --change-pin --pin env:QUARVEL_NEW_PIN --new-pin env:QUARVEL_PIN
}

sign_digest_info() {
    # SEQUENCE { SEQUENCE { sha256, NULL }, OCTET STRING of 32 bytes }
    printf '\x30\x31\x30\x0d\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01\x05\x00\x04\x20' >"$WORK/digest-info"
    openssl dgst -sha256 -binary "$WORK/letter" >>"$WORK/digest-info"
    tool --login --pin env:QUARVEL_PIN --sign --mechanism RSA-PKCS --id "$key" \
        --input-file "$WORK/digest-info" --output-file "$WORK/signature"
    echo "$(stat -c %s "$WORK/signature") bytes: $(od -An -tx1 -v "$WORK/signature" | tr -d ' \n' | cut -c -48)..."
}

encrypt_for_card() {
    echo "Only for the owner of this card." >"$WORK/secret"
    openssl pkeyutl -encrypt -certin -inkey "$WORK/certificate.pem" -in "$WORK/secret" -out "$WORK/encrypted"
    echo "$(stat -c %s "$WORK/encrypted") bytes"
}

decrypt_on_card() {
    tool --login --pin env:QUARVEL_PIN --decrypt --mechanism RSA-PKCS --id "$key" \
        --input-file "$WORK/encrypted" --output-file "$WORK/decrypted"
    cmp "$WORK/secret" "$WORK/decrypted"
    cat "$WORK/decrypted"
}
