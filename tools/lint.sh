#!/usr/bin/env bash
# Static checks that are kept clean: shellcheck, clang-format, pyflakes, pycodestyle,
# cppcheck, clang-tidy (.clang-tidy).
#   --fast   without clang-tidy, which takes minutes and wants a built tree
# Further arguments: files, else all of src/ and bench/.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/common.sh
fast=
if [ "${1-}" = --fast ]; then
    fast=yes
    shift
fi
install_packages packages-lint.txt
[ -n "$fast" ] || [ -f build/dev/compile_commands.json ] || die "nothing is built; run ./test first"
files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(find src bench -name '*.cpp')

say "shellcheck"
# By find, for git tells nothing of an unpacked archive or another user's checkout.
find bench examples image tests tools -name '*.sh' -exec shellcheck -x {} +
find run test .ci cmake/debian -type f -exec shellcheck -x {} +
say "clang-format"
find src bench tests '(' -name '*.cpp' -o -name '*.h' ')' -exec clang-format --dry-run --Werror {} +
say "pyflakes, pycodestyle"
pyflakes3 bench examples tests tools
pycodestyle --max-line-length=100 --ignore=E402,W503,W504 bench examples tests tools
say "cppcheck"
# Qt's slots and QtTest's rows look unused to it, and it knows no Qt headers.
cppcheck --quiet --error-exitcode=1 --std=c++17 --library=qt --inline-suppr -j "$(nproc)" \
    --enable=warning,performance,portability --suppress=missingIncludeSystem \
    --suppress=unknownMacro --suppress=CastIntegerToAddressAtReturn -I src -I bench "${files[@]}"
[ -z "$fast" ] || exit 0
say "clang-tidy (${#files[@]} files)"
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/dev --quiet 2>/dev/null
say "clean"
