#!/bin/sh
# Replaces the application's script: records its arguments.
echo "ZEQ/bin/${0##*/} $*" >> /tmp/init.d.log
