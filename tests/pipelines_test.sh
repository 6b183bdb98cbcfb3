#!/usr/bin/env bash
# The program as a part of a pipeline: what only a shell can show.
#   pipelines_test.sh PROGRAM
set -uo pipefail
program=$(realpath "${1:?usage: pipelines_test.sh PROGRAM}")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1

failures=0
# expect NAME WANTED ACTUAL
expect() {
    [[ $2 == "$3" ]] && return
    failures=$((failures + 1))
    printf 'FAILED %s\n  expected: %q\n  actual:   %q\n' "$@"
}

cat >numbers.dv <<'END'
for i = 1, 20000
    print("line", i)
end
END
cat >double.dv <<'END'
input = io["open"]("/dev/stdin")
line = input["read"]()
while line != not
    print(toNumber(line) * 2)
    line = input["read"]()
end
END
cat >sum.dv <<'END'
input = io["open"]("/dev/stdin")
sum = 0
line = input["read"]()
while line != not
    sum += toNumber(line)
    line = input["read"]()
end
print(sum)
END
cat >fails.dv <<'END'
print("before")
error("no more")
END

# More than a pipe holds, so the script is still printing when its reader goes.
expect "the first line of many" "line 1" "$("$program" numbers.dv 2>errors | head -n 1)"
expect "a closed pipe is no error" "" "$(<errors)"

# Where the signal of a closed pipe is ignored, the script prints into the void and runs to its end.
got=$(trap '' PIPE; { "$program" numbers.dv 2>errors; echo $? >status; } | head -n 1)
expect "the first line of many, without the signal" "line 1" "$got"
expect "a closed pipe is no error without the signal" "" "$(<errors)"
expect "nor is it a failure" 0 "$(<status)"

for ((i = 0; i < 20000; ++i)); do echo 'print("x")'; done >lines
expect "the prompt ends with its reader" "dv> x" "$("$program" --repl <lines 2>errors | head -n 1)"
expect "the prompt writes no error for a closed pipe" "" "$(<errors)"

expect "one script feeds another" 30 \
    "$(printf '%s\n' 1 2 3 4 5 | "$program" double.dv | "$program" sum.dv)"

got=$(echo 'print(6 * 7)' | "$program" --repl; echo "status $?")
expect "the prompt reads a pipe and leaves its line open" $'dv> 42\ndv> status 0' "$got"
expect "the prompt without standard input" "dv> 0" "$("$program" --repl <&-; echo $?)"

got=$("$program" fails.dv 2>errors | cat; echo "status $?")
expect "a failure shows through pipefail" $'before\nstatus 1' "$got"
expect "an error stays out of the pipe" \
    "dovrelscript: DovrelScript error: no more" "$(head -n 1 errors)"

echo 'print("compiled")' | "$program" --compile /dev/stdin program.dvbc
expect "a script from a pipe is compiled" compiled "$("$program" --run-bytecode program.dvbc)"
got=$(cat program.dvbc | "$program" --run-bytecode /dev/stdin 2>&1; echo "status $?")
expect "a bytecode file is no pipe" \
    $'dovrelscript: Failed to size bytecode file: /dev/stdin\nstatus 1' "$got"

cat >opens.dv <<'END'
file = io["open"]("written", "w")
print("printed")
file["write"]("to the file")
file["close"]()
input = io["open"]("written", "r")
print(input["read"]())
error("told")
END
rm -f written
"$program" opens.dv >&- 2>errors
expect "a failure without standard output" 1 $?
expect "what is printed without standard output is in no file" "to the file" "$(<written)"
expect "standard error is open without standard output" \
    "dovrelscript: DovrelScript error: told" "$(head -n 1 errors)"
rm -f written
"$program" opens.dv <&- >&- 2>&-
expect "a failure without standard streams" 1 $?
expect "without standard streams a file has what is written" "to the file" "$(<written)"
rm -f written
"$program" opens.dv >output 2>&-
expect "an error without standard error is in no file" "to the file" "$(<written)"
expect "standard output is open without standard error" $'printed\nto the file' "$(<output)"
"$program" opens.dv <&- >output 2>errors
expect "standard output is open without standard input" $'printed\nto the file' "$(<output)"
expect "standard error is open without standard input" \
    "dovrelscript: DovrelScript error: told" "$(head -n 1 errors)"
echo 'print("compiled")' >compiled.dv
(exec >&- 2>&-; exec "$program" --compile compiled.dv program.dvbc)
expect "a compiled file without standard streams" compiled "$("$program" --run-bytecode program.dvbc)"

cat >endless.dv <<'END'
print("before")
function f(n)
    native next = n + 1
    return 1 + f(next)
end
ok, message = pcall(f, 1)
print("behind")
END
# The sanitizers take more addresses than there are here.
if [[ -z ${DOVREL_SANITIZED:-} ]]; then
    for kilobytes in 80000 400000; do
        got=$(ulimit -v $kilobytes; "$program" endless.dv 2>&1; echo "status $?")
        expect "a recursion without end in $kilobytes KiB" \
            $'before\ndovrelscript: stack overflow\n  at line 4\n  return 1 + f(next)\nstatus 1' "$got"
    done
fi

((failures == 0)) && echo "all passed"
exit $((failures != 0))
