#!/usr/bin/env bash
# Static checks that are kept clean: clang-tidy (.clang-tidy), cppcheck, shellcheck.
# Takes some minutes; not part of ./test. Arguments: files, else all of src/ and bench/.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh
install_packages packages-lint.txt
[ -f build/dev/compile_commands.json ] || die "nothing is built; run ./test first"
files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(git ls-files 'src/*.cpp' 'bench/*.cpp')

say "shellcheck"
git ls-files '*.sh' run test .ci/run cmake/debian | xargs shellcheck -x
say "cppcheck"
# Qt's slots and QtTest's rows look unused to it, and it knows no Qt headers.
cppcheck --quiet --error-exitcode=1 --std=c++17 --library=qt --inline-suppr -j "$(nproc)" \
    --enable=warning,performance,portability --suppress=missingIncludeSystem \
    --suppress=unknownMacro --suppress=CastIntegerToAddressAtReturn -I src -I bench "${files[@]}"
say "clang-tidy (${#files[@]} files)"
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/dev --quiet 2>/dev/null
say "clean"
