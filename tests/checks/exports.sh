#!/usr/bin/env bash
# A program exports the reference-counted base of all shared objects, by name: exports.sh PROGRAM
set -euo pipefail
exported=$(nm --dynamic --defined-only --demangle "$1")
failed=0
for name in 'RefCounter::RefCounter()' '~MTReferencedTypeBase()' 'AddRef()' 'Release()' 'IsValid()' 'IsValid() const'; do
    if ! grep -q "MTObjects::MTReferencedTypeBase::$name\$" <<<"$exported"; then
        echo "$1 does not export MTObjects::MTReferencedTypeBase::$name" >&2
        failed=1
    fi
done
exit "$failed"
