#!/usr/bin/env bash
# The report of a device that nobody touches: tool and libraries are installed in the system's own places, the library
# registers the job, the system's cron daemon runs it, and the account centre hears of the device. Runs inside
# scripts/sandbox; everything it starts ends with it.
set -uo pipefail

work=$(mktemp -d) ids=()
end() {  # the mount goes with the sandbox
  [ ${#ids[@]} = 0 ] || { kill "${ids[@]}"; wait "${ids[@]}"; } 2>/dev/null
}
trap end EXIT
die() { echo "cron_test: $*"; exit 1; }
job() { grep '^[^#].*--report_info' /etc/cron.d/kivo; }

# The machine's libraries with ours among them, in this view only.
DESTDIR=$work/image cmake --install "$VARNKIVO_BUILD" --prefix /usr >"$work/log" || die "$(cat "$work/log")"
folder=$(dirname "$(find "$work/image" -name 'libvarnkivo.so.1')")
folder=${folder#"$work/image"}
mkdir "$work/mount" && mount -t tmpfs none "$work/mount" && mkdir "$work/mount"/{upper,work} &&
  mount -t overlay none -o "lowerdir=$folder,upperdir=$work/mount/upper,workdir=$work/mount/work" "$folder" &&
  cp -P "$work/image$folder"/lib*.so.1* "$folder/" && ldconfig || die 'the libraries cannot be installed'
rm -f /usr/varn/bin/varnkivo
tool=$(find "$work/image" -path '*bin/varnkivo' -type f)
cp "$tool" /usr/varn/bin/varnkivo
loaded=$(ldd /usr/varn/bin/varnkivo | sed -n 's/.*libvarnkivo.so.1 => \([^ ]*\) .*/\1/p')
[ "$(readlink -f "$(dirname "$loaded")")" = "$(readlink -f "$folder")" ] || die "the tool has the library of $loaded"

"$VARNKIVO_BUILD/sim/varnkivo-sim" --trust-into --account 'ann@example.com:correct horse:1001' >"$work/sim" &
ids+=($!)
for _ in $(seq 200); do [ ! -s "$work/sim" ] || break; sleep 0.05; done
control=$(sed 's/.*"control":"\([^"]*\)".*/\1/' "$work/sim")

printf 'correct horse' | /usr/varn/bin/varnkivo login --email ann@example.com --password-stdin >"$work/log" 2>&1 ||
  die "no sign-in: $(cat "$work/log")"
first=$(job)
[[ $first =~ ^[0-9]+\ (9|1[0-6])\ \*\ \*\ [1-5]\ root\ /usr/varn/bin/varnkivo\ --report_info$ ]] || die "the job is: $first"
/usr/varn/bin/varnkivo --report_info || die "the report by hand ends with $?"
[ "$(job)" = "$first" ] || die "registered again, the job has another time: $(job)"

# The account centre moves the schedule to the next full minute but one, where the next is too near.
at=$(($(date +%s) + 75 - $(date +%-S) % 60 + ($(date +%-S) > 45 ? 0 : -15)))
at=$((at - at % 60))
schedule=$(date -d "@$at" '+%-M %-H * * *')
curl -sf "$control/change-account" -d "{\"user_id\":\"1001\",\"report_cron_timestring\":\"$schedule\"}" >/dev/null ||
  die 'the account cannot be changed'
/usr/varn/bin/varnkivo --report_info || die "the second report by hand ends with $?"
[ "$(job)" = "$schedule root /usr/varn/bin/varnkivo --report_info" ] || die "the job is: $(job), not at $schedule"
reports() {
  curl -sf "$control/state" | python3 -c 'import json, sys; print(len(json.load(sys.stdin)["accounts"][0]["reports"]))'
}
[ "$(reports)" = 2 ] || die "$(reports) reports by hand"

/usr/sbin/cron -f 2>"$work/cron" &
ids+=($!)
while [ "$(date +%s)" -lt $((at + 60)) ]; do
  sleep 1
  [ "$(reports)" = 2 ] || break
done
[ "$(reports)" = 3 ] || die "cron has made $(($(reports) - 2)) reports: $(cat "$work/cron"; tail -n 5 /var/log/syslog)"
echo 'cron_test: the scheduled report arrived'
