#!/usr/bin/env bash
# Builds and packs the agent for panels (.deb, .tar.gz) and the bench for people's machines (.deb);
# prints what the agent weighs and how it starts.
#   tools/pack.sh        for this machine's architecture, into build/release/packages
#   tools/pack.sh arm    for 32-bit hard-float ARM, into build/arm/packages
#   tools/pack.sh all    both
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

case "${1-}" in
'') preset=release bench=dev root='' ;;
arm) preset=arm bench=bench-arm root=build/arm-root ;;
all)
    tools/pack.sh
    exec tools/arm.sh
    ;;
*) die "usage: tools/pack.sh [arm | all]" ;;
esac
folder=$PWD/build/$preset/packages

# Packs what the build folder $1 has built.
pack() {
    (cd "build/$1" && cmake . >/dev/null && cpack -B "$folder" >pack.log) \
        || die "packing failed: see build/$1/pack.log"
    rm -rf "$folder/_CPack_Packages"
}

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
[ "$preset" = release ] || [ -d "$root" ] || die "there is no $root: run tools/arm.sh"
build "$preset"
build "$bench" --target bench
say "Packing into ${folder#"$PWD"/}"
rm -rf "$folder"
pack "$preset"
pack "$bench"

# The same for boards without dpkg. Unpacked over a board it must not touch the board's settings,
# which dpkg knows by their list.
unpacked=build/$preset/unpacked
rm -rf "$unpacked"
deb=$(echo "$folder"/ict-agent_*.deb)
dpkg-deb -x "$deb" "$unpacked"
mapfile -t renamed < <(dpkg-deb --ctrl-tarfile "$deb" | tar -xO ./conffiles \
    | sed 's|^/\(.*\)|--transform=s,^\1$,\&.dist,|')
(cd "$unpacked" && tar --owner=0 --group=0 "${renamed[@]}" -czf "${deb%.deb}.tar.gz" -- *)
(cd "$folder" && stat -c '  %n %s bytes' -- *)
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
