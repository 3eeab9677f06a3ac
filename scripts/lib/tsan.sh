# shellcheck shell=bash
# ThreadSanitizer stage of scripts/test: builds only the thread test in
# build-tsan/ and runs it on every database of the current test environment.
#
#   tsan_stage JOBS     returns non-zero when the build fails or TSan reports

tsan_stage() {
  local jobs=$1 dir=build-tsan
  mkdir -p "$dir" || return 1
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSCADASTORE_TSAN=ON \
    -DSCADASTORE_WERROR=ON -DSCADASTORE_BENCH=OFF >"$dir/configure.log" 2>&1 \
    || { cat "$dir/configure.log"; error "cmake configure of $dir/ failed"; return 1; }
  cmake --build "$dir" -j"$jobs" --target thread_test || { error "build of $dir/ failed"; return 1; }
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --test-dir "$dir" --output-on-failure -R '^thread_test\.' --timeout 900 --no-tests=error
}
