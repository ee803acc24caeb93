#!/usr/bin/env bash
# Seeds one-line defects into a copy of the agent and tells which test catches each.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh

usage() {
    cat <<'TEXT'
Usage: tools/defects.sh [--scratch DIR] [--list] [NAME...]

Applies each defect of tools/defects/*.txt, or those of the family NAME (panel, state, screens,
values, rooms) and those whose own name begins with NAME, to a copy of the tree, builds, runs the
test that should catch it and, if that passes, all others until one fails. Ends with a table and the
percentage caught. Exit status 1: a defect is stale (its text is not in its file, or it does not
build) or more than 5 % survive.

  --scratch DIR   the copy and its build (default build/defects), kept for the next run
  --list          names and tests, nothing is run; stale texts are found all the same

A defect takes about a minute; to leave it alone: nice tools/defects.sh >defects.log 2>&1 &
How a defect is written: tools/defects/README.md
TEXT
}

scratch=build/defects list=
side_by_side=$((12 * $(nproc))) # the tests mostly wait
while [ $# -gt 0 ]; do
    case $1 in
    -h | --help) usage && exit ;;
    --list) list=yes ;;
    --scratch)
        scratch=${2:?--scratch wants a folder}
        shift
        ;;
    -*) die "$1 is no option; see tools/defects.sh --help" ;;
    *) break ;;
    esac
    shift
done
wanted=("$@")
names=() files=() tests=() olds=() news=()

# Whether defect $2 of family $1 is to be tried.
is_wanted() {
    local name
    [ ${#wanted[@]} -gt 0 ] || return 0
    for name in "${wanted[@]}"; do
        [[ $1 != "$name" && $2 != "$name"* ]] || return 0
    done
    return 1
}

# A defect is a paragraph: "= name", "file", "test", the old lines behind '-', the new behind '+'.
read_family() {
    local line last=-1 text
    while IFS= read -r line; do
        text=${line#*[ ]}
        case $line in
        '= '*)
            last=-1
            is_wanted "$1" "$text" || continue
            last=${#names[@]}
            names+=("$text") files+=('') tests+=('') olds+=('') news+=('')
            continue
            ;;
        esac
        [ "$last" -ge 0 ] || continue
        case $line in
        'file '*) files[last]=$text ;;
        'test '*) tests[last]=$text ;;
        '- '*) olds[last]+="${olds[last]:+$'\n'}$text" ;;
        '+ '*) news[last]+="${news[last]:+$'\n'}$text" ;;
        esac
    done <"tools/defects/$1.txt"
}

# Whether the old text of defect $1 is in its file of tree $2, exactly once.
is_fresh() {
    local text rest
    text=$(cat "$2/${files[$1]}" 2>/dev/null) || return 1
    rest=${text#*"${olds[$1]}"}
    [ "$rest" != "$text" ] && [[ $rest != *"${olds[$1]}"* ]]
}

# Makes the copy like the tree; what is like it already keeps its time, and is not built again.
prepare() {
    local file
    tree=$scratch/tree
    mkdir -p "$tree"
    git ls-files | while read -r file; do
        cmp -s "$file" "$tree/$file" && continue
        mkdir -p "$tree/$(dirname "$file")"
        cp --preserve=mode "$file" "$tree/$file"
    done
    comm -13 <(git ls-files | sort) <(find "$tree" -type f -printf '%P\n' | sort) \
        | (cd "$tree" && xargs -r -d '\n' rm -f)
    cmake -S "$tree" -B "$scratch/build" -G Ninja -D CMAKE_BUILD_TYPE=Release >"$scratch/log" \
        || die "CMake could not configure, see $scratch/log"
}

make_targets() {
    cmake --build "$scratch/build" --target "$@" >"$scratch/log" 2>&1
}

run_tests() {
    ctest --test-dir "$scratch/build" --timeout 300 "$@" >"$scratch/log" 2>&1
}

# The same side by side, up to the first failure.
watch_tests() {
    setsid ctest --test-dir "$scratch/build" --timeout 300 -j "$side_by_side" "$@" \
        >"$scratch/log" 2>&1 &
    local pid=$!
    while kill -0 "$pid" 2>/dev/null; do
        if grep -q '\*\*\*' "$scratch/log"; then
            kill -- -"$pid" 2>/dev/null || true
        fi
        sleep 1
    done
    wait "$pid"
}

# The tests that failed in the run before.
failing_tests() {
    sed -n 's/^ *[0-9]*\/[0-9]* Test *#[0-9]*: \([^ ]*\) .*\*\*\*.*/\1/p' "$scratch/log"
}

# Sets `caught` to the test that fails with the defect that is in the copy; empty: it survives.
judge() {
    local test=${tests[$1]}
    caught=
    if ! make_targets ict-agent bench "${test/#tst_effects_*/bench}"; then
        caught=stale
        return
    fi
    if ! run_tests -R "^$test\$"; then
        caught=$test
        return
    fi
    make_targets all || { caught=stale; return; }
    if watch_tests -E "^($test|example)\$"; then
        return
    fi
    local suspect
    for suspect in $(failing_tests); do
        # Far from the defect a failure counts if it repeats: this machine may be busy.
        run_tests -R "^$suspect\$" || { caught="$suspect (not $test)"; return; }
    done
    # Bad luck: the rest is still to be run.
    run_tests -j "$side_by_side" -E "^($test|example)\$" \
        || run_tests --rerun-failed --stop-on-failure \
        || caught="$(failing_tests | head -n 1) (not $test)"
}

try() {
    local file=$tree/${files[$1]} text
    caught=stale
    is_fresh "$1" "$tree" || return 0
    text=$(cat "$file")
    printf '%s\n' "${text/"${olds[$1]}"/"${news[$1]}"}" >"$file"
    judge "$1"
    printf '%s\n' "$text" >"$file"
}

for family in tools/defects/*.txt; do
    read_family "$(basename "$family" .txt)"
done
[ ${#names[@]} -gt 0 ] || die "no defect is named $*; see tools/defects.sh --list"
if [ -n "$list" ]; then
    for i in "${!names[@]}"; do
        is_fresh "$i" . && state='' || state=STALE
        printf '%-52s %-24s %s\n' "${names[i]}" "${tests[i]}" "$state"
    done
    exit
fi

say "A copy in $scratch, as it is"
prepare
mapfile -t sound < <(printf '%s\n' "${tests[@]}" | sort -u)
mapfile -t programs < <(printf '%s\n' "${sound[@]/#tst_effects_*/bench}" | sort -u)
make_targets ict-agent bench "${programs[@]}" || die "the tree does not build, see $scratch/log"
run_tests -j "$side_by_side" -R "^($(IFS='|' && echo "${sound[*]}"))\$" \
    || die "without any defect fails: $(failing_tests | xargs); see $scratch/log"

say "${#names[@]} defects"
table=() stale=0 survivors=0
for i in "${!names[@]}"; do
    start=$SECONDS
    try "$i"
    case $caught in
    stale) stale=$((stale + 1)) ;;
    '') survivors=$((survivors + 1)) ;;
    esac
    table+=("$(printf '%-52s %s' "${names[i]}" "${caught:-SURVIVED (not even ${tests[i]})}")")
    printf '%3d/%d %4d s  %s\n' $((i + 1)) ${#names[@]} $((SECONDS - start)) "${table[-1]}"
done
judged=$((${#names[@]} - stale))
say "Defect, and the test that caught it"
printf '%s\n' "${table[@]}"
say "$((judged - survivors)) of $judged caught ($((judged ? 100 * (judged - survivors) / judged : 0)) %), $stale stale"
[ "$stale" -eq 0 ] && [ $((20 * survivors)) -le "$judged" ]
