#!/bin/sh
# Replaces the application's script: records its arguments.
echo "NodeRED/bin/${0##*/} $*" >> /tmp/init.d.log
