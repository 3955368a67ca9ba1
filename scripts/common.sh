# What the scripts share; to be sourced. root is the folder of the checkout.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Installs the packages that are not there, on Debian and its kin.
install_missing() {
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        echo "There is no apt here; this needs what Debian calls $*" >&2
        return
    fi
    local missing=() package as_root=()
    for package in "$@"; do
        [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
    done
    if [[ ${#missing[@]} -gt 0 ]]; then
        echo "Installing ${missing[*]}"
        [[ $(id -u) -eq 0 ]] || as_root=(sudo)
        "${as_root[@]}" apt-get update -qq
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
    fi
}

# Runs a command that nobody needs to read unless it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    [[ $status -eq 0 ]] || cat "$log" >&2
    rm -f "$log"
    return "$status"
}
