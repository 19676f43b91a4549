#!/usr/bin/env bash
# The shared library exports its classes and, outside any class or namespace,
# only the framework functions its interface needs (global memory, messages,
# drawing, diagnostics, string resources) and the two store factories. Any other
# loose global (a helper, a generated pipeline, a runtime) fails this check.
set -euo pipefail
library=$1
allowed='AfxMessageBox AfxThrowInvalidArgException AfxThrowMemoryException CreateBlockManager CreateDIBSection
CreateMessageWindow CreateWholePlaneManager DeleteObject DestroyWindow DispatchMessageW
FindStringResource GlobalAlloc GlobalFree GlobalLock GlobalSize GlobalUnlock IsWindow
LocalAlloc LocalFree LocalLock LocalUnlock OutputDebugStringW PeekMessageW PostMessageW
PostThreadMessageW SendMessageW TranslateMessage'

loose=$(nm -D --defined-only "$library" | awk '{print $3}' | c++filt |
  grep -v -e '^typeinfo' -e '^vtable' | sed 's/(.*//' | grep -v '::' | sort -u)
echo "$loose" | wc -l | xargs echo "loose exported globals:"
unexpected=$(comm -23 <(echo "$loose") <(tr -s ' \n' '\n' <<<"$allowed" | sort -u))
if [ -n "$unexpected" ]; then
  echo "unexpected loose exports:" $unexpected >&2
  exit 1
fi
