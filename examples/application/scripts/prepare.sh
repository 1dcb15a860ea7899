#!/bin/sh
# Stops the version that is installed, if any, and refuses a panel without room. What a script
# refuses ends the installation before anything is copied.
old=/mnt/user/recipe-board/bin/recipe-board-stop
[ ! -x "$old" ] || "$old"
free=$(df -k /mnt/user | awk 'NR == 2 { print $4 }')
if [ "$free" -lt 1000 ]; then
    echo "Not enough room: $free KiB free, 1000 needed."
    exit 1
fi
