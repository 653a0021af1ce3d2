#!/bin/sh
# Stands in for the application's script: notes what it was asked.
echo "ZEQ/bin/${0##*/} $*" >> /tmp/init.d.log
