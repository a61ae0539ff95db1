#!/bin/sh
# Stands in for pkexec where no polkit daemon runs (tests run as root, so the
# authorisation is granted). Like pkexec it wants an absolute program path,
# runs the program as root with a cleared environment holding only
# PKEXEC_UID and a safe PATH, and answers 127 when it cannot.
[ "$(id -u)" = 0 ] || exit 127
case "$1" in
  /*) ;;
  *) exit 127 ;;
esac
exec env -i PKEXEC_UID="$(id -ru)" PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
