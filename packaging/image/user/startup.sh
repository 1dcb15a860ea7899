#!/bin/sh
# Starts the application of the machine; the panel runs this file at its start.
export QT_QPA_PLATFORM=linuxfb:fb=/dev/fb0 QT_QPA_FB_HIDECURSOR=1 QT_FONT_DPI=96
exec /mnt/user/application/application
