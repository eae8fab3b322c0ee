# Counting checks in the end-to-end scripts: `check NAME COMMAND...` runs the command and counts a
# failure when it fails; `finish_checks` prints the tally and ends the script with its verdict.
failures=0
checks=0

check() {
    local name=$1
    shift
    checks=$((checks + 1))
    if ! "$@"; then
        echo "FAILED: $name"
        failures=$((failures + 1))
    fi
}

finish_checks() {
    echo "$((checks - failures)) passed, $failures failed"
    [ "$failures" -eq 0 ]
    exit
}
