#!/bin/sh
# Runs on the emulated board, called by scenario.py over the serial console:
# small waits and readings that would be long lines to type.
#
#   guest.sh watch-start          keep a client connected, its notifications
#                                 in /tmp/watch.log (one "TIME JSON" a line)
#   guest.sh watch-stop
#   guest.sh lines                lines in /tmp/watch.log so far
#   guest.sh wait-line FROM REGEX SECONDS
#                                 the first line after line FROM that matches
#   guest.sh count-lines FROM REGEX
#   guest.sh wait-active UNIT SECONDS [OLDPID]
#                                 UNIT active with a main PID other than OLDPID
#   guest.sh wait-ping SECONDS    the service answers ping
#   guest.sh usage PID SECONDS    RSS (KiB) and CPU seconds used over SECONDS
set -u
log=/tmp/watch.log

case "$1" in
  watch-start)
    "$0" watch-stop
    : > "$log"
    # The service plays only while a client is connected: this one stays.
    setsid sh -c 'usb-media-ctl watch --json 2>/tmp/watch.err |
      while IFS= read -r line; do echo "$(date +%s.%N) $line"; done >> /tmp/watch.log' \
      < /dev/null > /dev/null 2>&1 &
    # Connected once the client said so on its standard error.
    i=0
    while ! grep -q '^watching' /tmp/watch.err 2>/dev/null; do
      i=$((i + 1)); [ $i -gt 300 ] && { echo "watch did not connect: $(cat /tmp/watch.err)"; exit 1; }
      sleep 0.1
    done
    ;;
  watch-stop)
    # The reading loop ends with the client's output.
    pkill -f 'usb-media-ctl watch' 2>/dev/null
    rm -f /tmp/watch.err
    true
    ;;
  lines)
    wc -l < "$log"
    ;;
  wait-line)
    from=$2 regex=$3 limit=$4
    end=$(( $(date +%s) + limit ))
    while :; do
      line=$(tail -n +"$((from + 1))" "$log" | grep -E -m1 -- "$regex") && { echo "$line"; exit 0; }
      [ "$(date +%s)" -ge "$end" ] && { echo "no line matching $regex after line $from within $limit s"; exit 1; }
      sleep 0.2
    done
    ;;
  count-lines)
    tail -n +"$(($2 + 1))" "$log" | grep -E -c -- "$3"
    ;;
  wait-active)
    unit=$2 limit=$3 old=${4:-0}
    end=$(( $(date +%s) + limit ))
    while :; do
      state=$(systemctl show -P ActiveState "$unit")
      pid=$(systemctl show -P MainPID "$unit")
      [ "$state" = active ] && [ "$pid" != 0 ] && [ "$pid" != "$old" ] && { echo "$pid"; exit 0; }
      [ "$(date +%s)" -ge "$end" ] && { echo "$unit is $state (main PID $pid) after $limit s"; exit 1; }
      sleep 0.2
    done
    ;;
  wait-ping)
    end=$(( $(date +%s) + $2 ))
    until usb-media-ctl --json call ping 2>/dev/null | grep -q '"result":true'; do
      [ "$(date +%s)" -ge "$end" ] && { echo "no ping reply within $2 s"; exit 1; }
      sleep 0.2
    done
    ;;
  usage)
    pid=$2 seconds=$3
    ticks() { awk '{ print $14 + $15 }' "/proc/$pid/stat"; }
    before=$(ticks); sleep "$seconds"; after=$(ticks)
    rss=$(awk '/^VmRSS/ { print $2 }' "/proc/$pid/status")
    echo "rss_kib=$rss cpu_s=$(awk -v t=$((after - before)) -v hz="$(getconf CLK_TCK)" 'BEGIN { printf "%.2f", t / hz }')"
    ;;
  *)
    echo "guest.sh: unknown command $1" >&2; exit 2 ;;
esac
