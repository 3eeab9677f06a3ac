#!/bin/sh
# Runs the monitor tests with a /dev/shm of their own where the system allows
# it: the block /message_mem is one per machine, so other processes using the
# library would otherwise deliver to the tests' receivers, and the tests would
# remove the block of a monitor running beside them.
if unshare --mount true 2>/dev/null; then
  exec unshare --mount sh -c \
    'mount -t tmpfs -o mode=1777 tmpfs /dev/shm 2>/dev/null; exec "$0" "$@"' "$@"
fi
exec "$@"
