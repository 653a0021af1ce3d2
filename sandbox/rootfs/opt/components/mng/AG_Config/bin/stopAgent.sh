#!/bin/sh
# Stands in for the management component's script: notes which agent it was to stop.
echo "${0##*/} $*" >> /tmp/init.d.log
