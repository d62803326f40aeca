#!/bin/sh
# The command-line commands end to end, as a cron job calls them: a saved connection in a data
# folder of this test's own, the password on standard input, results on standard output,
# progress and errors on standard error, and the exit status a script can test.
set -eu
program=$1
test_server=$2
[ -n "${TALLOWICK_TEST_PORT:-}" ] || eval "$("$test_server" env)"
home=$(mktemp -d)
database=tallowick_cli_$$
trap 'echo "DROP DATABASE IF EXISTS $database;" >"$home/drop.sql";
      echo "$TALLOWICK_TEST_PASSWORD" | "$program" run-file --connection Test --password-stdin "$home/drop.sql" >/dev/null 2>&1;
      rm -rf "$home"' EXIT
export HOME="$home" XDG_DATA_HOME="$home/data"
mkdir -p "$XDG_DATA_HOME/Tallowick"
profile() { # id name readOnly
    printf '{"id":"%s","name":"%s","host":"127.0.0.1","port":%s,"user":"%s","database":"","tls":"Disabled (local only)","caPath":"","color":"green","readOnly":%s}' \
        "$1" "$2" "$TALLOWICK_TEST_PORT" "$TALLOWICK_TEST_USER" "$3"
}
tunnelled=7C3F4E6D-0C5F-4F20-9D77-8C604F4FBE33
echo "[$(profile 5F0C2C4B-8A3D-4D0E-9B55-6A4E2F2D9C11 Test false),$(profile 6A1D3D5C-9B4E-4E1F-8C66-7B5F3E3EAD22 Locked true),$(profile $tunnelled Tunnelled false)]" \
    >"$XDG_DATA_HOME/Tallowick/connections.json"
printf '[{"profile":"%s","host":"127.0.0.1","port":%s,"user":"%s","auth":"keyFile","keyFile":"%s"}]' \
    "$tunnelled" "$TALLOWICK_TEST_SSH_PORT" "$TALLOWICK_TEST_SSH_USER" "$TALLOWICK_TEST_SSH_KEY" \
    >"$XDG_DATA_HOME/Tallowick/ssh-tunnels.json"

fail() { echo "FAIL: $*" >&2; echo "--- stdout" >&2; cat "$home/out" >&2; echo "--- stderr" >&2; cat "$home/err" >&2; exit 1; }
# run EXPECTED-STATUS ARGS...: runs the program with the password on standard input.
run() {
    expected=$1
    shift
    status=0
    echo "$TALLOWICK_TEST_PASSWORD" | "$program" "$@" >"$home/out" 2>"$home/err" || status=$?
    [ "$status" = "$expected" ] || fail "$* exited $status, expected $expected"
    ! grep -q "$TALLOWICK_TEST_PASSWORD" "$home/out" "$home/err" || fail "the password was printed"
}

printf 'CREATE DATABASE %s;\nUSE %s;\nCREATE TABLE t (id INT PRIMARY KEY, v VARCHAR(10));\n' "$database" "$database" >"$home/load.sql"
printf "INSERT INTO t VALUES (1, 'a');\nINSERT INTO t VALUES (2, 'b');\nINSERT INTO t VALUES (3, 'c');\n" >>"$home/load.sql"
run 0 run-file --connection Test --password-stdin "$home/load.sql"
grep -q '^6 statements run in ' "$home/out" && [ "$(wc -l <"$home/out")" = 1 ] || fail "run-file result"
grep -q '^100% 6 of 6 statements$' "$home/err" || fail "run-file progress"

run 0 export --connection Test --database "$database" --output "$home/dump.sql" --verify --password-stdin
grep -q "^Exported $database to $home/dump.sql in .* s · verified: 1 tables, 3 rows restore exactly$" "$home/out" \
    || fail "export result"
grep -q '^INSERT INTO `t` (`id`, `v`) VALUES' "$home/dump.sql" || fail "export file"

run 0 export-csv --connection Test --database "$database" --table t --output "$home/t.csv" --password-stdin
grep -q "^Exported 3 rows to $home/t.csv in " "$home/out" || fail "export-csv result"
[ "$(cat "$home/t.csv")" = "$(printf '"id","v"\r\n"1","a"\r\n"2","b"\r\n"3","c"\r')" ] || fail "export-csv file"
run 1 export-csv --connection Test --query "DELETE FROM $database.t" --output "$home/x.csv" --password-stdin
grep -q '^export-csv runs only SELECT' "$home/err" || fail "export-csv write refusal"
run 2 export-csv --connection Test --table t --query "SELECT 1" --output "$home/x.csv"
grep -q '^Name either a table' "$home/err" || fail "export-csv source"

printf 'CREATE TABLE copy LIKE t;\n' >"$home/copy.sql"
run 0 run-file --connection Test --database "$database" --password-stdin "$home/copy.sql"
run 0 import-csv --connection Test --database "$database" --table copy --password-stdin "$home/t.csv"
grep -q "^Imported 3 rows into $database.copy in " "$home/out" || fail "import-csv result"
run 0 export-csv --connection Test --database "$database" --table copy --output "$home/copy.csv" --password-stdin
cmp -s "$home/t.csv" "$home/copy.csv" || fail "import-csv round trip"
run 1 import-csv --connection Test --database "$database" --table copy --password-stdin "$home/t.csv"
grep -q "MySQL 1062: " "$home/err" || fail "import-csv duplicate"
run 1 import-csv --connection Locked --database "$database" --table copy --password-stdin "$home/t.csv"
grep -q 'is read-only; import-csv writes' "$home/err" || fail "import-csv read-only"

printf "INSERT INTO t VALUES (4, 'd');\nINSERT INTO t VALUES (1, 'again');\nINSERT INTO t VALUES (5, 'e');\n" >"$home/bad.sql"
run 1 run-file --connection Test --database "$database" --password-stdin "$home/bad.sql"
grep -q "^Stopped at line 2: MySQL 1062: .*The statement began: INSERT INTO t VALUES (1, 'again'). Every statement before it was applied.$" "$home/err" || fail "failure report"
[ ! -s "$home/out" ] || fail "a failure printed a result"
printf 'SELECT COUNT(*) FROM t;\n' >"$home/count.sql"

# Through the private sshd: a host key not in ~/.ssh/known_hosts (this test's own home) is refused
# until the command is told to trust it, and known from then on.
run 1 run-file --connection Tunnelled --database "$database" --password-stdin "$home/count.sql"
grep -q '^SSH: 127.0.0.1 is not a known host yet (its key is SHA256:.*--accept-new-host-key' "$home/err" \
    || fail "unknown host key"
run 0 run-file --connection Tunnelled --database "$database" --password-stdin --accept-new-host-key "$home/count.sql"
grep -q '^Trusting the new SSH host key SHA256:' "$home/err" || fail "host key trusted"
grep -q "^\[127.0.0.1\]:$TALLOWICK_TEST_SSH_PORT " "$home/.ssh/known_hosts" || fail "known_hosts entry"
run 0 run-file --connection Tunnelled --database "$database" --password-stdin "$home/count.sql"

run 1 run-file --connection Nope --password-stdin "$home/load.sql"
grep -q '^No saved connection is named "Nope". Saved connections: Test, Locked, Tunnelled.$' "$home/err" \
    || fail "unknown connection"
run 1 run-file --connection Locked --password-stdin "$home/bad.sql"
grep -q 'is read-only; run-file writes' "$home/err" || fail "read-only refusal"
run 1 run-file --connection Test --password-stdin "$home/missing.sql"
grep -q "^Could not open $home/missing.sql: " "$home/err" || fail "missing file"
run 2 run-file --connection Test
grep -q '^Name the SQL file to run.$' "$home/err" && grep -q '^usage: tallowick run-file' "$home/err" || fail "usage"
run 2 export --connection Test --output x.sql --bogus
grep -q '^Unknown option --bogus.$' "$home/err" || fail "unknown option"
run 0 export --help
grep -q '^usage: tallowick export ' "$home/out" && [ ! -s "$home/err" ] || fail "help"
echo "command-line commands work as documented"
