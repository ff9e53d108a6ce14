#!/usr/bin/env bash
# Runs clang-tidy over the C++ sources that changed since the last landing
# (origin/main, or the commit before where there is nothing newer), or over all
# with --all. Needs build/dev.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [[ ${1-} == --all ]]; then
    mapfile -t files < <(git ls-files -- '*.cpp')
else
    base=$(git rev-parse -q --verify origin/main || true)
    if [[ -z $base || $base == "$(git rev-parse HEAD)" ]]; then
        base=$(git rev-parse -q --verify HEAD~1 || git rev-parse HEAD)
    fi
    mapfile -t files < <({ git diff --name-only --diff-filter=d "$base" -- '*.cpp'
        git ls-files --others --exclude-standard -- '*.cpp'; } | sort -u)
fi
# Only what the build compiles has a command line.
known=()
for file in "${files[@]}"; do
    if grep -qF "\"$PWD/$file\"" build/dev/compile_commands.json; then known+=("$file"); fi
done
if ((${#known[@]} == 0)); then
    echo "no C++ source has changed"
    exit 0
fi
echo "${#known[@]} sources"
tidy() {
    # The analyzer walks every path through the macros of a test, for minutes, and finds nothing there.
    local checks=()
    if [[ $1 == */test/* ]]; then checks=(--checks='-clang-analyzer-*'); fi
    clang-tidy-19 -p build/dev --quiet "${checks[@]}" "$1"
}
export -f tidy
printf '%s\0' "${known[@]}" | xargs -0 -P "$(nproc)" -I '{}' bash -c 'tidy "$1"' tidy '{}' \
    2> >(grep -vE 'warnings? (generated|treated)|^Suppressed|^Use -(header|system)' >&2 || true)
