# What the scripts share; to be sourced. root is the folder of the checkout.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Installs the packages that are missing, on Debian and its derivatives.
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

# Runs a command whose output is shown only if it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    [[ $status -eq 0 ]] || cat "$log" >&2
    rm -f "$log"
    return "$status"
}

# The packages that building the program needs.
program_packages=(cmake g++ libcli11-dev libexiv2-dev libheif-dev libjpeg62-turbo-dev liblcms2-dev libpng-dev libtiff-dev libwebp-dev
    ninja-build nlohmann-json3-dev pkg-config)

# The packages that making Debian packages needs besides, with the one for Python.
package_packages=(dpkg-dev pybind11-dev python3 python3-dev python3-numpy)

# Builds only the program into a folder, and shows the progress.
build_program() {
    install_missing "${program_packages[@]}"
    echo "Building $1/bin/ko"
    quietly cmake -S "$root" --preset release -B "$1" -DKO_TESTS=OFF -DKO_BENCH=OFF -DKO_PYTHON=OFF -DKO_WERROR=OFF
    with_progress cmake --build "$1"
}

# Runs a build and shows its newest line: on a terminal only that line, elsewhere every tenth. The whole output is shown if the
# build fails.
with_progress() {
    local log line status=0 count=0
    log=$(mktemp)
    NINJA_STATUS='[%f/%t] ' "$@" 2>&1 | tee "$log" | while IFS= read -r line; do
        if [[ -t 1 ]]; then
            printf '\r\033[K%s' "${line:0:$((${COLUMNS:-80} - 1))}"
        elif ((count++ % 10 == 0)); then
            printf '%s\n' "$line"
        fi
    done || status=$?
    [[ ! -t 1 ]] || printf '\r\033[K'
    [[ $status -eq 0 ]] || cat "$log" >&2
    rm -f "$log"
    return "$status"
}
