# Shared by the scripts that use a card (source it): building for the desktop, a PC/SC service with a virtual reader, cards
# in it, and the end of everything that was started.
# Sets: MODULE (the library), WORK (a folder of this run), READER (the virtual reader's beginning of name).

set -euo pipefail

MODULE=$PWD/build/desktop/libquarvel.so
VCARD=$PWD/build/desktop/quarvel-vcard
READER="Virtual PCD"
PCSC_SOCKET=/run/pcscd/pcscd.comm
WORK=$(mktemp -d "${TMPDIR:-/tmp}/quarvel.XXXXXX")

vcard_port=35963
started=()
# Files outside WORK that go at the end.
temporary=()
card_pid=

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Runs the command, what it prints in WORK/output, and sets `status`. Not an operand of ||, where a function would go on
# after a failing command.
capture() {
    set +e
    (set -e; "$@") >"$WORK/output" 2>&1
    status=$?
    set -e
}

# Ends a process that this script started, and waits for its end.
end_process() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

clean_up() {
    local status=$? pid
    trap - EXIT
    remove_card
    for pid in ${started[@]+"${started[@]}"}; do
        end_process "$pid"
    done
    rm -rf "$WORK" ${temporary[@]+"${temporary[@]}"}
    exit "$status"
}
trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

build_desktop() {
    echo "Building $MODULE"
    if ! { cmake --preset desktop && cmake --build --preset desktop; } >"$WORK/build.log" 2>&1; then
        tail -n 40 "$WORK/build.log" >&2
        fail "the build, see above"
    fi
}

pcsc_runs() {
    perl -MIO::Socket::UNIX -e 'exit !IO::Socket::UNIX->new($ARGV[0])' $PCSC_SOCKET
}

# The first of two neighbouring free ports: the driver gives a reader two slots and listens for both.
free_ports() {
    perl -MIO::Socket::INET -e '
        sub at { IO::Socket::INET->new(Listen => 1, LocalAddr => "0.0.0.0", LocalPort => $_[0]) }
        for (1 .. 100) {
            my $first = at(0) or next;
            my $second = at($first->sockport + 1) or next;
            print $first->sockport;
            exit 0;
        }
        exit 1'
}

# The service that runs, or else one of our own; `start_pcsc virtual` gives ours a virtual reader at a free port.
start_pcsc() {
    if pcsc_runs; then
        echo "Using the PC/SC service that runs here"
        return
    fi
    if [ "$(id -u)" -ne 0 ]; then
        fail "no PC/SC service runs here; start it (sudo systemctl start pcscd.socket), or run this script as root"
    fi
    local config=()
    if [ "${1:-}" = virtual ]; then
        vcard_port=$(free_ports) || fail "no two free TCP ports"
        mkdir "$WORK/reader.conf.d"
        config=(--config "$WORK/reader.conf.d")
        cat >"$WORK/reader.conf.d/virtual" <<CONFIG
FRIENDLYNAME "$READER"
DEVICENAME /dev/null:$(printf '0x%X' "$vcard_port")
LIBPATH $(find /usr/lib/pcsc/drivers/serial -name 'libifdvpcd.so' -print -quit)
CHANNELID $(printf '0x%X' "$vcard_port")
CONFIG
    fi
    echo "Starting pcscd${1:+ with a $1 reader}"
    pcscd --foreground ${config[@]+"${config[@]}"} >"$WORK/pcscd.log" 2>&1 &
    local pid=$!
    started+=("$pid")
    # Its socket is there within milliseconds; there is nothing to wait on but the file itself.
    local try
    for try in $(seq 100); do
        if pcsc_runs; then
            return
        fi
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.05
    done
    cat "$WORK/pcscd.log" >&2
    fail "pcscd does not start, see above"
}

# start_card NAME [OPTION...]: a simulated card in the virtual reader; returns when the service has seen it.
start_card() {
    local line
    echo "Putting a simulated $1 card into the reader"
    mkfifo "$WORK/card.events"
    "$VCARD" "$@" --port "$vcard_port" >"$WORK/card.events" 2>"$WORK/card.log" &
    card_pid=$!
    exec {card_events}<"$WORK/card.events"
    rm "$WORK/card.events"
    while IFS= read -r -t 20 -u "$card_events" line; do
        [[ $line != *powered* ]] || return 0
    done
    cat "$WORK/card.log" >&2
    cat >&2 <<'HELP'
The PC/SC service that runs here has no virtual reader, or another card is in it. With the package vsmartcard-vpcd
installed, restart the service (sudo systemctl restart pcscd.service), or stop it (sudo systemctl stop pcscd.socket
pcscd.service) and run this script as root: then it starts one of its own. This script does neither by itself.
HELP
    fail "no card in the virtual reader"
}

remove_card() {
    [ -n "$card_pid" ] || return 0
    end_process "$card_pid"
    card_pid=
    exec {card_events}<&-
}
