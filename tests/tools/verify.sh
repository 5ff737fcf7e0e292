#!/bin/sh
# verify.sh FITSVERIFY FOLDER: no error and no warning in any FITS file of the folder.
set -eu
for file in "$2"/*.fit; do
    "$1" -q "$file" # fails with the number of errors and warnings
done
