# shellcheck shell=bash
# Shared by ./run and ./test: the packages of packages.txt, and the build.

say() { printf '\033[1m==> %s\033[0m\n' "$*"; }
die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# Runs a command as root, by sudo where we are not.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "packages are missing and there is no sudo. As root, run: apt-get install -y $missing"
    fi
}

# Installs what the list $1 names and this machine lacks.
install_packages() {
    local package
    missing=
    while read -r package; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' \
            || missing="$missing $package"
    done < <(sed 's/#.*//; /^[[:space:]]*$/d' "$1")
    [ -n "$missing" ] || return 0
    say "Installing packages:$missing"
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get update -q
    # shellcheck disable=SC2086 # a list of words
    as_root apt-get install -q -y --no-install-recommends $missing
}

# Configures (once) and builds the CMake preset $1; what follows goes to the build.
build() {
    say "Building ($1)"
    if ! [ -f "build/$1/build.ninja" ]; then
        cmake --preset "$1" >"build-$1.log" 2>&1 || {
            cat "build-$1.log"
            die "CMake could not configure the preset $1; see above"
        }
        rm -f "build-$1.log"
    fi
    cmake --build "build/$1" "${@:2}"
}

# The archive as this machine's own apt knows it, so that mirrors and proxies set up here are used.
archive() {
    # shellcheck disable=SC2016 # apt's own placeholders
    apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
        'Created-By: Packages' 'Origin: Debian' 'Codename: bookworm' 'Component: main' | sort -u
}

# Unpacks of the Debian 12 armhf packages $1 (with commas) and all they need the folders $3... into
# $2. Not installed: nothing of ARM runs, nobody has to be root. Left out is what only 3D drivers
# use, a third of the size.
unpack_armhf() {
    local sources
    sources=$(archive)
    [ -n "$sources" ] \
        || die "apt on this machine has no Debian 12 archive: add it to its sources, run apt-get update"
    nice mmdebstrap --mode=chrootless --quiet --architectures=armhf --variant=extract --format=tar \
        --include="$1" bookworm - - <<<"$sources" \
        | {
            tar -x -C "$2" --no-same-owner --exclude='*/dri' --exclude='libLLVM*' "${@:3}"
            cat >/dev/null # the padding; mmdebstrap hangs up on us if nobody reads it
        }
}
