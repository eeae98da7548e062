#!/bin/bash -eu
# SPDX-License-Identifier: Apache-2.0
# Builds every fuzzer into $OUT with the compiler, flags and engine that the environment names ($CC, $CXX, $CXXFLAGS,
# $LIB_FUZZING_ENGINE), with its corpus and dictionary, and the shared libraries it needs beside it.
cd "$SRC/vorn"
cmake -S . -B "$WORK/build" -G Ninja -DVORN_FUZZ=ON -DVORN_TESTS=OFF -DVORN_BENCH=OFF -DCMAKE_BUILD_TYPE=None \
  -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX"
cmake --build "$WORK/build" --target fuzzers

mkdir -p "$OUT/lib"
for source in fuzz/targets/*.cpp; do
  name=$(basename "$source" .cpp)
  program=$WORK/build/fuzz/$name
  [ -x "$program" ] || continue
  cp "$program" "$OUT/"
  ldd "$program" | awk '/=> \// { print $3 }' | grep -E 'cjson|crypto|usbredir' | xargs -r cp -n -t "$OUT/lib" || true
  dictionary=fuzz/$name.dict
  [ -f "$dictionary" ] || dictionary=fuzz/tags.dict
  cp "$dictionary" "$OUT/$name.dict"
  (cd "fuzz/corpus/$name" && zip -q -r "$OUT/${name}_seed_corpus.zip" .)
done
