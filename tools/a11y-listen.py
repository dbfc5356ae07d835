#!/usr/bin/python3
# A stand-in screen reader for tools/a11y-check: registers with the AT-SPI
# registry for the events a reader speaks from and prints every one whose
# object or text mentions the log status.
import sys

import pyatspi


def on_event(event):
    try:
        name = event.source.name or ""
    except Exception:  # the object may be gone already
        name = ""
    data = event.any_data if isinstance(event.any_data, str) else ""
    if "Log status" in name or "Log status" in data:
        print(f"{event.type}: {data or name}", flush=True)


for kind in ("object:property-change:accessible-name", "object:announcement",
             "object:state-changed", "object:text-changed", "object:children-changed"):
    pyatspi.Registry.registerEventListener(on_event, kind)
print("listening", flush=True)
sys.stdout.flush()
pyatspi.Registry.start()
