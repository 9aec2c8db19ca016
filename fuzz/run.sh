#!/usr/bin/env bash
# Fuzzes the text readers: each target for SECONDS (default 60) under AddressSanitizer and
# UndefinedBehaviorSanitizer, one after the other, starting from the kept corpus and the shipped files.
#   fuzz/run.sh [--keep|--merge] [SECONDS] [TARGET...]
# --keep folds what a run found into the kept corpus (fuzz/corpus/TARGET), minimised with -merge=1;
# --merge does only that, for the corpus of earlier runs (SECONDS is then not used).
# A crash, a hang (10 s for one input), a leak or a sanitizer report stops the run with status 1; the
# input is left in build-fuzz/artifacts.  Keep it in fuzz/regressions/TARGET once it is fixed.
set -euo pipefail
cd "$(dirname "$0")/.."
# Absolute paths: a target works in a temporary folder of its own (its working folder too).
root=$(pwd)
keep=0
fuzz=1
if [ "${1:-}" = "--keep" ]; then keep=1; shift; fi
if [ "${1:-}" = "--merge" ]; then keep=1; fuzz=0; shift; fi
seconds=60
if [ "$fuzz" = 1 ] && [ $# -gt 0 ]; then seconds=$1; shift; fi
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(definition action_list spectrum filter absorption generation grading script)
build=$root/build-fuzz
jobs=${JOBS:-2}

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ -DTERVO_FUZZ=ON \
      -DTERVO_TESTS=OFF >/dev/null
cmake --build "$build" -j "$jobs" $(printf -- '--target fuzz_%s ' "${targets[@]}") >/dev/null

seeds_of() {
  case "$1" in
    definition) echo "$root/home/def" "$root/examples/cells" ;;
    action_list) echo "$root/examples/actions" ;;
    spectrum) echo "$root/home/spectrum" ;;
    *) echo "$root/fuzz/seeds/$1" ;;
  esac
}

# Longer inputs add nothing to a reader of lines but time: the shipped spectrum (36 kB) is read in
# its first 4 kB, some 250 wavelengths.
max_len_of() {
  case "$1" in
    spectrum) echo "-max_len=4096" ;;
  esac
}

# The kept corpus stays small: after the merge the largest inputs leave it until it holds 64 kB.
trim() {
  local folder=$1 budget=65536
  while [ "$(cat "$folder"/* 2>/dev/null | wc -c)" -gt "$budget" ]; do
    rm -f "$(ls -S "$folder" | head -1 | sed "s|^|$folder/|")"
  done
}

mkdir -p "$build/artifacts"
for t in "${targets[@]}"; do
  work="$build/corpus/$t"
  mkdir -p "$work" "$root/fuzz/corpus/$t"
  # The first folder receives what the run finds; the kept corpus and the seeds are only read.
  # shellcheck disable=SC2046
  [ "$fuzz" = 1 ] && echo "== $t: ${seconds} s" && "$build/fuzz/fuzz_$t" "$work" "$root/fuzz/corpus/$t" $(seeds_of "$t") $(max_len_of "$t") \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$build/artifacts/$t-" 2>&1 | grep -E '^#[0-9]+.*(INITED|DONE)|stat::|ERROR|SUMMARY|Test unit written|==[0-9]+==' || true
  if ls "$build/artifacts/$t-"* >/dev/null 2>&1; then
    echo "== $t: a failing input was kept in $build/artifacts" >&2
    exit 1
  fi
  if [ "$keep" = 1 ]; then
    # The seeds are in the repository already: they stand in the fresh folder only so that the
    # merge keeps just what reaches beyond them, and leave it afterwards.
    fresh="$build/corpus/$t.kept"
    rm -rf "$fresh" && mkdir -p "$fresh"
    seeded=()
    for dir in $(seeds_of "$t"); do
      for f in "$dir"/*; do
        [ -s "$f" ] || continue
        name="seed-$(basename "$f" | tr -c 'A-Za-z0-9._\n-' '_')"
        cp "$f" "$fresh/$name" && seeded+=("$fresh/$name")
      done
    done
    # shellcheck disable=SC2046
    "$build/fuzz/fuzz_$t" -merge=1 $(max_len_of "$t") "$fresh" "$root/fuzz/corpus/$t" "$work" >/dev/null 2>&1
    rm -f "${seeded[@]}"
    trim "$fresh"
    rm -rf "$root/fuzz/corpus/$t" && mv "$fresh" "$root/fuzz/corpus/$t"
    echo "== $t: kept corpus $(ls "$root/fuzz/corpus/$t" | wc -l) inputs, $(cat "$root/fuzz/corpus/$t"/* 2>/dev/null | wc -c) bytes"
  fi
done
