# Sourced by the long scripts: `stage NAME` ends the stage before it (printing
# how long it took) and starts NAME; `stage ""` ends the last one. Lines are
# prefixed with $stage_prefix ("armhf", "board").
stage_start=$SECONDS
stage() {
  local now=$SECONDS
  [ -n "${stage_name:-}" ] && echo "=== $stage_prefix: $stage_name took $(( now - stage_start )) s"
  stage_name=$1; stage_start=$now
  [ -n "$1" ] && echo "=== $stage_prefix: $1"
  return 0
}
