#!/bin/sh
# Compares what a reader of Arrow from npm reads from mdmsg's output with its JSON lines: of messages with every type and its limits,
# and of several batches of a feed.
#
#   check_reader.sh NODE MODULES READER FORMAT MDMSG WORK     see compare.mjs; FORMAT is arrow or arrow-file
#
# Prints "skipped: ..." where the reader is not installed (scripts/install-deps npm).
set -eu
node=$1 modules=$2 reader=$3 format=$4 mdmsg=$5 work=$6
here=$(cd "$(dirname "$0")" && pwd)
case $reader in
  polars-*) package=nodejs-polars ;;
  parquet) package=parquet-wasm ;;
  *) package=$reader ;;
esac
if [ ! -x "$node" ] || [ ! -d "$modules/$package" ]; then
  echo "skipped: $package is not installed; scripts/install-deps npm installs it"
  exit 0
fi
mkdir -p "$work"
"$mdmsg" encode --encoding mInt "$here/all_types.json" >"$work/all_types.hex"
"$mdmsg" generate --count 150000 >"$work/feed.hex" 2>/dev/null
for messages in all_types feed; do
  "$mdmsg" decode --format json "$work/$messages.hex" >"$work/$messages.json"
  "$mdmsg" decode --format "$format" "$work/$messages.hex" >"$work/$messages.arrow"
  "$node" "$here/compare.mjs" "$modules" "$reader" "$work/$messages.arrow" "$work/$messages.json"
done
