#!/usr/bin/env bash
# Fuzzes the agent with libFuzzer, each target for SECONDS, in the sandbox of tests/fuzz/run.sh.
# What is found is kept in build/fuzz/work/TARGET, and the corpus that grew there.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

seconds=${1-}
[[ "$seconds" =~ ^[0-9]+$ ]] || die "say for how long: ./test --fuzz SECONDS [frames | link | boot]"
shift
[ $# -gt 0 ] || set -- frames link boot
install_packages packages.txt
install_packages packages-fuzz.txt
build fuzz --target fuzz_frames fuzz_link fuzz_boot
for target; do
    [ -d "tests/fuzz/corpus/$target" ] || die "there is no target $target; frames, link and boot are"
    say "Fuzzing $target for $seconds s"
    work=build/fuzz/work/$target
    mkdir -p "$work/corpus"
    cp -n "tests/fuzz/corpus/$target"/* "$work/corpus/"
    tests/fuzz/run.sh "build/fuzz/tests/fuzz/fuzz_$target" "$work" corpus \
        -max_total_time="$seconds" -timeout=60 -rss_limit_mb=0 -max_len=2048 -print_final_stats=1 \
        2>"$work/log" >/dev/null || {
        tail -n 40 "$work/log"
        die "a finding in $target; its input is in $work, the whole report in $work/log"
    }
    grep -E 'stat::(number_of|average)|DONE' "$work/log"
done
