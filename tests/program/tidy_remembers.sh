#!/usr/bin/env bash
# tidy_remembers.sh SOURCE WORK: scripts/tidy.py remembers what was clean, for every checkout, and nothing else. A stand-in
# for clang-tidy finds the word FINDING in a file and in what it includes, and keeps a list of its calls.
set -euo pipefail
source=$1
work=$2.tidy
rm -rf "$work"
mkdir -p "$work/bin" "$work/cache"
export XDG_CACHE_HOME=$work/cache PATH=$work/bin:$PATH

cat >"$work/bin/clang-tidy-22" <<'STAND_IN'
#!/usr/bin/env bash
work=$(cd "$(dirname "$0")/.." && pwd)
[ "$1" != --version ] || { cat "$work/version"; exit; }
file=${*: -1}
echo "${file##*/}" >>"$work/calls"
[ ! -e "$work/fails" ] || exit 1
root=$(sed 's|.* -p \(.*\)/build/mingw-clang-ubtrap/tidy .*|\1|' <<<"$*")
files=("$file" $(sed -n "s|^#include \"\(.*\)\"|$root/\1|p" "$file"))
! grep -H FINDING "${files[@]}"
STAND_IN
chmod +x "$work/bin/clang-tidy-22"
echo "version 1" >"$work/version"

checkout() {  # checkout FOLDER: a small project that has product/a.cpp with a header, and a batch of two tests
  local root=$1 build=$1/build/mingw-clang-ubtrap
  mkdir -p "$root/scripts" "$root/product" "$root/tests" "$build/batches" "$root/build/native-sanitize"
  echo '[]' >"$root/build/native-sanitize/compile_commands.json"
  cp "$source/scripts/tidy.py" "$root/scripts/"
  cp "$source/.clang-tidy" "$root/"
  cp "$source/tests/.clang-tidy" "$root/tests/"
  echo /build/ >"$root/.gitignore"
  echo '#include "product/a.h"' >"$root/product/a.cpp"
  echo 'int a();' >"$root/product/a.h"
  echo 'int b();' >"$root/product/b.cpp"
  echo 'int x();' >"$root/tests/x_test.cpp"
  echo 'int y();' >"$root/tests/y_test.cpp"
  printf '#include "tests/x_test.cpp"\n#include "tests/y_test.cpp"\n' >"$build/batches/batch.cpp"
  {
    separator='['
    for file in product/a.cpp product/b.cpp build/mingw-clang-ubtrap/batches/batch.cpp; do
      printf '%s{"directory": "%s", "file": "%s", "command": "x86_64-w64-mingw32-g++-posix -I%s -o x.obj -c %s"}' \
        "$separator" "$build" "$root/$file" "$root" "$root/$file"
      separator=,
    done
    echo ']'
  } >"$build/compile_commands.json"
  git -C "$root" init -q
}

failures=0
checks() {  # checks WHAT CODE CALLS [ARGUMENT...]: tidy.py in the checkout $root ends with the code and looks at these
  local what=$1 expected_code=$2 expected_calls=$3 code=0 calls
  shift 3
  : >"$work/calls"
  "$root/scripts/tidy.py" "$@" >"$work/output" 2>&1 || code=$?
  calls=$(sort "$work/calls" | tr '\n' ' ')
  if [ "$code" != "$expected_code" ] || [ "${calls% }" != "$expected_calls" ]; then
    printf '%s: code %s, expected %s; looked at "%s", expected "%s"\n' "$what" "$code" "$expected_code" "${calls% }" \
      "$expected_calls" >&2
    cat "$work/output" >&2
    failures=1
  fi
}

root=$work/first
checkout "$root"
checks "first run" 0 "a.cpp b.cpp batch.cpp"
checks "nothing changed" 0 ""
first=$root
root=$work/another/place
checkout "$root"
checks "another checkout" 0 ""
root=$first

echo '// FINDING' >>"$root/product/a.h"
checks "a finding in a header" 1 "a.cpp"
grep -q 'a.h:// FINDING' "$work/output" || { echo "the finding was not printed" >&2; failures=1; }
checks "the same finding" 1 "a.cpp"
echo 'int a();' >"$root/product/a.h"
checks "the header as it was" 0 ""
echo 'int changed();' >"$root/product/a.h"
checks "a changed header" 0 "a.cpp"
checks "nothing changed since" 0 ""

echo '// FINDING' >>"$root/tests/y_test.cpp"
checks "a finding in a batch" 1 "batch.cpp"
checks "a test of that batch alone" 1 "batch.cpp" "$root/tests/x_test.cpp"
checks "another file alone" 0 "" "$root/product/a.cpp"
echo 'int y();' >"$root/tests/y_test.cpp"
checks "without it" 0 ""

touch "$work/fails"
echo 'int c();' >>"$root/product/b.cpp"
checks "a clang-tidy that fails without a word" 1 "b.cpp"
rm "$work/fails"
checks "one that works again" 0 "b.cpp"

echo "# changed" >>"$root/.clang-tidy"
checks "other checks" 0 "a.cpp b.cpp batch.cpp"
echo "version 2" >"$work/version"
checks "another version" 0 "a.cpp b.cpp batch.cpp"
sed -i 's| -o x.obj| -DNEW -o x.obj|g' "$root/build/mingw-clang-ubtrap/compile_commands.json"
checks "other flags" 0 "a.cpp b.cpp batch.cpp"
echo "# changed" >>"$root/scripts/tidy.py"
checks "another script" 0 "a.cpp b.cpp batch.cpp"

echo 'int z();' >"$root/product/z.cpp"
checks "a file that no target compiles" 1 ""
grep -q 'no target compiles product/z.cpp' "$work/output" || { echo "the file was not named" >&2; failures=1; }
rm "$root/product/z.cpp"

find "$work/cache/kvx" -type f -exec touch -d '31 days ago' {} +
rm "$root/product/b.cpp"
checks "old entries in use" 0 ""
[ "$(find "$work/cache/kvx" -type f -mtime +30 | wc -l)" = 0 ] || { echo "old entries were kept" >&2; failures=1; }
checks "entries in use" 0 ""
exit $failures
