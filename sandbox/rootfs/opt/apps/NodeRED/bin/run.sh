#!/bin/sh
# Stands in for the application's script: notes what it was asked.
echo "NodeRED/bin/${0##*/} $*" >> /tmp/init.d.log
