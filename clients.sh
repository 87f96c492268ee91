#!/usr/bin/env bash
# Runs independent clients over the PC/SC service with a simulated PIV card, and prints PASS or FAIL for each:
#   ./clients.sh
set -euo pipefail
. "$(dirname "$0")/scripts/usage.sh"
cd "$(dirname "$0")"

[ $# -eq 0 ] || { usage && exit 2; }
scripts/install-deps.sh build demo clients
. scripts/lib.sh
. scripts/tool.sh

failures=0
# check TEXT COMMAND...: runs it, and shows what it printed when it fails.
check() {
    local text=$1 status
    shift
    capture "$@"
    if [ "$status" -eq 0 ]; then
        echo "PASS $text"
    else
        echo "FAIL $text (status $status)"
        sed 's/^/   | /' "$WORK/output"
        failures=$((failures + 1))
    fi
}

# --- pkcs11-tool ------------------------------------------------------------------------------------------------------

tool_lists() {
    tool --login --pin env:QUARVEL_PIN --list-objects >"$WORK/objects"
    [ "$(grep -c '^Certificate Object' "$WORK/objects")" -eq 4 ]
    [ "$(grep -c '^Private Key Object' "$WORK/objects")" -eq 4 ]
}

tool_signs() {
    sign_digest_info
    openssl dgst -sha256 -verify "$WORK/public.pem" -signature "$WORK/signature" "$WORK/letter"
}

tool_decrypts() {
    encrypt_for_card
    decrypt_on_card
}

tool_changes_pin() {
    change_pin
    use_new_pin
    change_pin_back
}

# --- p11-kit ----------------------------------------------------------------------------------------------------------

token_url="pkcs11:token=PIV%20Profile"

# Registers the module for the time of this run: in a configuration of its own, or, as p11-kit passes over root's, in
# the machine's.
register_with_p11_kit() {
    local modules=$WORK/config/pkcs11/modules
    if [ "$(id -u)" -eq 0 ]; then
        modules=/etc/pkcs11/modules
        temporary+=("$modules/quarvel-clients.module")
    fi
    mkdir -p "$modules"
    printf 'module: %s\ncritical: no\n' "$MODULE" >"$modules/quarvel-clients.module"
    export XDG_CONFIG_HOME=$WORK/config
}

p11tool_lists() {
    GNUTLS_PIN=$QUARVEL_PIN p11tool --login --list-all "$token_url" | tee "$WORK/urls"
    [ "$(grep -c 'type=cert' "$WORK/urls")" -eq 4 ]
}

p11tool_exports() {
    p11tool --export "$token_url;id=%9A%07;type=cert" >"$WORK/exported.pem"
    diff <(openssl x509 -in "$WORK/exported.pem" -outform DER | sha256sum) <(sha256sum <"$WORK/certificate.der")
}

# --- OpenSSL ----------------------------------------------------------------------------------------------------------

engine_key() {
    echo "pkcs11:id=%9A%07;type=private;pin-value=$QUARVEL_PIN"
}

openssl_signs() {
    PKCS11_MODULE_PATH=$MODULE openssl dgst -engine pkcs11 -keyform engine -sha256 -sign "$(engine_key)" \
        -out "$WORK/engine-signature" "$WORK/letter"
    openssl dgst -sha256 -verify "$WORK/public.pem" -signature "$WORK/engine-signature" "$WORK/letter"
}

openssl_requests() {
    PKCS11_MODULE_PATH=$MODULE openssl req -new -engine pkcs11 -keyform engine -key "$(engine_key)" -sha256 \
        -subj "/O=Quarvel/CN=Card Holder" -out "$WORK/request.pem"
    openssl req -in "$WORK/request.pem" -noout -verify -subject
}

# --- ssh --------------------------------------------------------------------------------------------------------------

ssh_lists() {
    ssh-keygen -D "$MODULE" 2>/dev/null | tee "$WORK/ssh-keys"
    diff <(ssh-keygen -i -m PKCS8 -f "$WORK/public.pem") <(head -n 1 "$WORK/ssh-keys" | cut -d ' ' -f 1,2)
}

# --- NSS --------------------------------------------------------------------------------------------------------------

nss_registers() {
    mkdir "$WORK/nss"
    certutil -N -d "sql:$WORK/nss" --empty-password
    modutil -dbdir "sql:$WORK/nss" -force -add quarvel -libfile "$MODULE"
    # Its status is that of the last slot, which is empty here.
    modutil -dbdir "sql:$WORK/nss" -list quarvel | tee "$WORK/nss-module" || true
    grep -q 'PIV Profile' "$WORK/nss-module"
}

nss_lists() {
    echo "$QUARVEL_PIN" >"$WORK/nss-pin"
    certutil -L -d "sql:$WORK/nss" -h "PIV Profile" -f "$WORK/nss-pin" | tee "$WORK/nss-certificates"
    [ "$(grep -c 'PIV Profile:' "$WORK/nss-certificates")" -ge 1 ]
    certutil -K -d "sql:$WORK/nss" -h "PIV Profile" -f "$WORK/nss-pin" | tee "$WORK/nss-keys"
    grep -q 'rsa' "$WORK/nss-keys"
}

# --- Python -----------------------------------------------------------------------------------------------------------

python_signs() {
    /usr/bin/python3 - "$MODULE" "$slot" "$WORK/letter" "$WORK/python-signature" "$WORK/digest-info" <<'PYTHON'
import os, sys
from PyKCS11 import *

module, slot, letter, signature, digest_info = sys.argv[1:]
library = PyKCS11Lib()
library.load(module)
session = library.openSession(int(slot, 0))
session.login(os.environ["QUARVEL_PIN"])
key = session.findObjects([(CKA_CLASS, CKO_PRIVATE_KEY), (CKA_ID, bytes.fromhex("9A07"))])[0]
result = session.sign(key, open(digest_info, "rb").read(), Mechanism(CKM_RSA_PKCS, None))
open(signature, "wb").write(bytes(result))
session.logout()
session.closeSession()
PYTHON
    openssl dgst -sha256 -verify "$WORK/public.pem" -signature "$WORK/python-signature" "$WORK/letter"
}

# A client that goes on when its card has left the reader and another one has come. Each side tells the other what it did.
hot_plug() {
    cat >"$WORK/hot-plug.py" <<'PYTHON'
import os, sys, time
from PyKCS11 import *

module, slot, digest_info = sys.argv[1:]
library = PyKCS11Lib()
library.load(module)

def sign():
    global session
    session = library.openSession(int(slot, 0))
    session.login(os.environ["QUARVEL_PIN"])
    key = session.findObjects([(CKA_CLASS, CKO_PRIVATE_KEY), (CKA_ID, bytes.fromhex("9A07"))])[0]
    session.sign(key, open(digest_info, "rb").read(), Mechanism(CKM_RSA_PKCS, None))
    print("signed", flush=True)
    sys.stdin.readline()

# The PC/SC service notices a card that comes or goes after a while, and tells nobody who is not waiting already.
def wait_until(seen):
    for attempt in range(200):
        if seen():
            return
        time.sleep(0.05)

def is_gone():
    try:
        session.getSessionInfo()
        return False
    except PyKCS11Error as error:
        print("gone" if error.value in (CKR_TOKEN_NOT_PRESENT, CKR_DEVICE_REMOVED) else error, flush=True)
        return True

def is_back():
    return library.getSlotInfo(int(slot, 0)).flags & CKF_TOKEN_PRESENT

sign()
wait_until(is_gone)
sys.stdin.readline()
wait_until(is_back)
sign()
PYTHON
    trap remove_card EXIT # of this check, which runs in a shell of its own
    mkfifo "$WORK/to-client" "$WORK/from-client"
    /usr/bin/python3 "$WORK/hot-plug.py" "$MODULE" "$slot" "$WORK/digest-info" \
        <"$WORK/to-client" >"$WORK/from-client" &
    started+=($!)
    exec {to_client}>"$WORK/to-client" {from_client}<"$WORK/from-client"
    client_says signed
    remove_card
    echo removed >&"$to_client"
    client_says gone
    start_card piv --pin "$QUARVEL_PIN"
    echo returned >&"$to_client"
    client_says signed
    exec {to_client}>&- {from_client}<&-
}

client_says() {
    local word=nothing
    read -r -t 30 -u "$from_client" word || true
    [ "$word" = "$1" ] || fail "the client said $word where $1 was expected"
}

# --- Many at once -----------------------------------------------------------------------------------------------------

# Eight threads with a session each, twenty signatures for each of them.
threads_sign() {
    /usr/bin/python3 - "$MODULE" "$slot" "$WORK/digest-info" "$WORK/signature" <<'PYTHON'
import os, sys, threading
from PyKCS11 import *

module, slot, digest_info, signature = sys.argv[1:]
library = PyKCS11Lib()
library.load(module)
data, expected = open(digest_info, "rb").read(), open(signature, "rb").read()
library.openSession(int(slot, 0)).login(os.environ["QUARVEL_PIN"])
good = []

def work():
    for _ in range(20):
        session = library.openSession(int(slot, 0))
        key = session.findObjects([(CKA_CLASS, CKO_PRIVATE_KEY), (CKA_ID, bytes.fromhex("9A07"))])[0]
        good.append(bytes(session.sign(key, data, Mechanism(CKM_RSA_PKCS, None))) == expected)
        session.closeSession()

threads = [threading.Thread(target=work) for _ in range(8)]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
print(good.count(True), "of 160")
sys.exit(good.count(True) != 160)
PYTHON
}

two_programs_list() {
    local pair other
    for pair in $(seq 15); do
        tool --list-objects >"$WORK/other-objects" &
        other=$!
        tool --list-objects >"$WORK/objects"
        wait $other
        [ "$(cat "$WORK/objects" "$WORK/other-objects" | grep -c '^Certificate Object')" -eq 8 ]
        [ "$(cat "$WORK/objects" "$WORK/other-objects" | grep -c '^Public Key Object')" -eq 8 ]
    done
}

ssh_lists_beside_a_signer() {
    threads_sign &
    local signer=$! round
    for round in $(seq 5); do
        [ "$(ssh-keygen -D "$MODULE" 2>/dev/null | grep -c '^ssh-rsa')" -eq 3 ]
    done
    wait $signer
}

threads_sign_between_resets() {
    threads_sign &
    local signer=$! resets=0
    while kill -0 $signer 2>/dev/null; do
        # The service may refuse a program that comes right after another one's reset.
        if opensc-tool --reset=warm; then resets=$((resets + 1)); fi
    done
    wait $signer
    [ $resets -gt 0 ]
}

# The card on another machine, on this one: three clients of p11-kit's server at once.
remote_programs_list() {
    local client number clients=()
    client=$(find /usr/lib -name p11-kit-client.so -print -quit)
    p11-kit server --foreground --name "$WORK/remote" --provider "$MODULE" "pkcs11:" &
    local server=$!
    until [ -S "$WORK/remote" ]; do kill -0 $server; done
    export P11_KIT_SERVER_ADDRESS=unix:path=$WORK/remote
    for number in 1 2 3; do
        pkcs11-tool --module "$client" --login --pin env:QUARVEL_PIN --list-objects --type privkey >"$WORK/remote-$number" &
        clients+=($!)
    done
    wait "${clients[@]}"
    kill $server
    [ "$(cat "$WORK"/remote-[123] | grep -c '^Private Key Object')" -eq 12 ]
}

# --- The pages --------------------------------------------------------------------------------------------------------

# Each command of the pages that want a card, against what the page says that it prints; then of those that start a PC/SC
# service, where no other one is seen.
run_pages() {
    [ -d /sdcard ] || temporary+=(/sdcard)
    scripts/run-pages.py card || failures=$((failures + 1))
    unshare --mount --net sh -c 'mount -t tmpfs tmpfs /run/pcscd && ip link set lo up && scripts/run-pages.py service' ||
        failures=$((failures + 1))
}

build_desktop
start_pcsc virtual
export QUARVEL_PIN=123456
start_card piv --pin "$QUARVEL_PIN"
find_slot
key=9a07
echo "A letter, signed on $(date)." >"$WORK/letter"
register_with_p11_kit

echo
check "pkcs11-tool lists the objects" tool_lists
check "pkcs11-tool reads a certificate" read_certificate
check "pkcs11-tool signs, openssl verifies" tool_signs
check "pkcs11-tool decrypts what openssl encrypted" tool_decrypts
check "pkcs11-tool changes the PIN and back" tool_changes_pin
check "p11tool lists the token by its URL" p11tool_lists
check "p11tool exports a certificate by its URL" p11tool_exports
check "OpenSSL's pkcs11 engine signs" openssl_signs
check "OpenSSL's pkcs11 engine makes a certificate request" openssl_requests
check "ssh-keygen lists the card's public keys" ssh_lists
check "NSS takes the module" nss_registers
check "NSS lists certificates and keys" nss_lists
check "PyKCS11 signs, openssl verifies" python_signs
check "Eight threads sign beside each other" threads_sign
check "Two programs list the objects at once" two_programs_list
check "ssh-keygen lists the keys while another program signs" ssh_lists_beside_a_signer
check "Eight threads sign while another program resets the card" threads_sign_between_resets
check "Three programs reach the card through p11-kit's server" remote_programs_list
run_pages
check "A session outlives its card: hot-plug" hot_plug

echo
[ $failures -eq 0 ] || fail "$failures clients"
echo "All clients passed."
