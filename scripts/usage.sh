# Sourced first. For --help prints the comment at the head of the script that sources it, and ends that script.
script=$(realpath "$0")
usage() {
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
}
case "${1:-}" in --help | -h) usage && exit ;; esac
