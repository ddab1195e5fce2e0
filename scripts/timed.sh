# Sourced by scripts. timed WHAT COMMAND...: announces a step, takes it, and prints how long it took.
timed() {
  local what=$1 begin=$SECONDS
  shift
  printf '== %s\n' "$what"
  "$@"
  printf '== %s: %d s\n' "$what" $((SECONDS - begin))
}
