#!/usr/bin/env bash
# Builds the agent for a panel and packs it as .deb and .tar.gz, for this machine's architecture or
# with the argument `arm` for 32-bit hard-float ARM; prints what it weighs and how it starts.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

case "${1-}" in
'') preset=release root='' ;;
arm) preset=arm root=build/arm-root ;;
*) die "usage: tools/pack.sh [arm]" ;;
esac
folder=build/$preset/packages

# The shared libraries that the ELF file $1 names.
needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }

# Where the library $1 lies among the target's.
locate() {
    find -L "$root"/lib/*-linux-* "$root"/usr/lib/*-linux-* -maxdepth 1 -name "$1" 2>/dev/null \
        | head -n 1
}

# Prints the libraries of the ELF file $1 that the agent names, then the sum over all they need.
libraries() {
    local queue name file size total=0 own
    own=$(needed "$1")
    queue=$own
    local -A seen=()
    while [ -n "$queue" ]; do
        name=${queue%%$'\n'*}
        queue=$(tail -n +2 <<<"$queue")
        [ -z "${seen[$name]-}" ] || continue
        seen[$name]=1
        file=$(locate "$name")
        [ -n "$file" ] || die "$name, which the agent needs, is nowhere under ${root:-/}"
        size=$(stat -L -c %s "$file")
        total=$((total + size))
        grep -qx "$name" <<<"$own" && printf '  %-24s %10d bytes\n' "$name" "$size"
        queue=$(printf '%s\n%s' "$queue" "$(needed "$file")" | sed '/^$/d')
    done
    printf '  %-24s %10d bytes\n' "all ${#seen[@]} with theirs" "$total"
}

install_packages packages.txt
build "$preset"
say "Packing into $folder"
rm -rf "$folder"
(cd "build/$preset" && cpack -B packages >packages.log) || die "cpack failed: see build/$preset/packages.log"
rm -rf "$folder/_CPack_Packages"
stat -c '%n %s' "$folder"/* | awk '{ printf "  %s %d bytes\n", $1, $2 }'

# As a panel gets it.
unpacked=build/$preset/unpacked
rm -rf "$unpacked"
mkdir "$unpacked"
tar -xzf "$folder"/*.tar.gz -C "$unpacked"
stripped=$unpacked/usr/local/bin/ict-agent
say "Weight"
printf '  %-24s %10d bytes\n' "agent, stripped" "$(stat -c %s "$stripped")"
libraries "$stripped"

# The emulator's start-up says nothing of a board's.
[ "$preset" = release ] || exit 0
build dev --target bench
say "Start-up, on a virtual panel beside an empty window"
BENCH_AGENT=$PWD/$stripped build/dev/bench measure --requests 0 --idle 0 \
    || echo "A limit is exceeded; the packages are made all the same."
