# Shared by the scripts beside it, which source it.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Only a new build directory takes it: one that was configured by hand keeps its generator.
export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# ensure_packages PACKAGE..: installs those of the Debian packages that are missing.
ensure_packages() {
    command -v dpkg-query >/dev/null ||
        fail "this is no Debian system: please install by hand what it calls $*"
    local package missing=() as_root=() log
    for package in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed* ]] ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            fail "missing Debian packages, and neither root nor sudo to install them: ${missing[*]}"
        as_root=(sudo)
    fi
    echo "${0##*/}: installing the Debian packages ${missing[*]}" >&2
    as_root+=(env DEBIAN_FRONTEND=noninteractive apt-get -qq)
    log=$("${as_root[@]}" update 2>&1 </dev/null &&
        "${as_root[@]}" install --yes --no-install-recommends "${missing[@]}" 2>&1 </dev/null) || {
        echo "$log" >&2
        fail "could not install ${missing[*]}"
    }
}

# configure_preset PRESET: makes its build directory ready.
configure_preset() {
    (cd "$root" && cmake --preset "$1")
}

# compile_preset PRESET [ARGUMENT..]: builds what has been configured; the arguments go to the build.
compile_preset() {
    local preset=$1
    shift
    (cd "$root" && cmake --build --preset "$preset" --parallel "$(nproc)" "$@")
}

# build_preset PRESET [ARGUMENT..]: both.
build_preset() {
    configure_preset "$1" && compile_preset "$@"
}
