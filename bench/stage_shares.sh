#!/usr/bin/env bash
# Where the time of one burst goes: profiles trv_first_call (a burst built
# once, then fused `calls` times) with perf and adds up the samples taken in
# libtrv.so by source file, then by pipeline stage.
# Usage: bench/stage_shares.sh [W H frames calls]   (default: 4000 3000 6 20)
# Needs perf (Debian linux-perf) and a host build with symbols, made here in
# build/prof (Release, -g).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
w=${1:-4000} h=${2:-3000} frames=${3:-6} calls=${4:-20}
build="$root/build/prof"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-g -DTRV_BUILD_TESTS=OFF \
  -DTRV_BUILD_TOOLS=OFF -DTRV_BUILD_PYTHON=OFF > "$build.configure.log"
cmake --build "$build" -j "$(nproc)" --target trv_first_call > /dev/null
data="$build/stage_shares.data"
perf record -q -F 2000 -o "$data" -- "$build/bench/trv_first_call" "$w" "$h" "$frames" "$calls" > /dev/null
# Self time of each function inside the library, put under the stage of the
# source file that defines it (from the symbol table's line information);
# the burst's set-up in the driver is not counted.
lib="$(readlink -f "$build/lib/libtrv.so")"
nm --defined-only -l "$lib" | awk 'NF >= 4 { print $3, $4 }' > "$build/stage_shares.files"
perf report -i "$data" --no-children --no-demangle --dsos "$(basename "$lib")" --sort sym --stdio -q 2>/dev/null |
  awk -v root="$root/" '
    function stage(file) {
      if (file ~ /analysis\/(sobel|blur_check)/) return "blur check (sharpness)";
      if (file ~ /analysis\/quarter_image/) return "quarter images";
      if (file ~ /analysis\//) return "brightness";
      if (file ~ /motion\/global_search/) return "global search";
      if (file ~ /motion\/(alignment_error|frame_screening|sobel_energy|reference_swap)/) return "frame screening";
      if (file ~ /motion\//) return "tile refinement";
      if (file ~ /fusion\/(block_classify|moving_blocks)/) return "block classification";
      if (file ~ /fusion\/strict/) return "strict merge";
      if (file ~ /fusion\//) return "clamped-mean fusion";
      return "other (threads, conversion, set-up)";
    }
    FNR == NR { file = $2; sub(/:[0-9]+$/, "", file); sub(root, "", file); fileOf[$1] = file; next }
    $1 ~ /%$/ && $2 == "[.]" { share = $1; sub(/%/, "", share);
                               total += share; byStage[stage(fileOf[$3])] += share }
    END { for (s in byStage) printf "%6.1f %%  %s\n", 100 * byStage[s] / total, s }' "$build/stage_shares.files" - | sort -rn
