#!/usr/bin/env python3
"""Parses and checks the property lists of the application bundle.

  plist_check.py bundle DIR                  every *.plist the build wrote into
                                             the bundle DIR (ZEV.app)
  plist_check.py templates SOURCE_ROOT CMAKE the templates, configured by
                                             configure_plists.cmake with a table
                                             of test values (as a Mac build would)

Both fail on a plist that does not parse, and on wrong or missing keys.
"""
import base64
import pathlib
import plistlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
BUNDLE_ID = "com.zev.launcher"
AGENT_LABEL = "com.zev.zevd"


class Problems:
    def __init__(self):
        self.items = []

    def check(self, ok, message):
        if not ok:
            self.items.append(message)
        return ok


def load(path, problems):
    try:
        with open(path, "rb") as handle:
            value = plistlib.load(handle)
    except Exception as error:  # any parse failure is the finding
        problems.check(False, "%s does not parse: %s" % (path, error))
        return None
    problems.check(isinstance(value, dict), "%s: top level is not a dictionary" % path)
    return value if isinstance(value, dict) else None


def check_info(info, where, problems):
    expect = {"CFBundleIdentifier": BUNDLE_ID, "CFBundleExecutable": "ZEVLauncher",
              "CFBundlePackageType": "APPL", "LSUIElement": True,
              "CFBundleInfoDictionaryVersion": "6.0"}
    for key, value in expect.items():
        problems.check(info.get(key) == value,
                       "%s: %s is %r, not %r" % (where, key, info.get(key), value))
    minimum = info.get("LSMinimumSystemVersion")
    problems.check(isinstance(minimum, str) and re.fullmatch(r"\d+\.\d+(\.\d+)?", minimum),
                   "%s: LSMinimumSystemVersion %r is not a version" % (where, minimum))
    for key in ("CFBundleShortVersionString", "CFBundleVersion"):
        problems.check(isinstance(info.get(key), str) and info[key],
                       "%s: %s missing" % (where, key))
    window = info.get("ZEVCertificationWindowSeconds")
    if window is not None:
        problems.check(isinstance(window, str) and window.isdigit(),
                       "%s: ZEVCertificationWindowSeconds %r is not whole seconds" % (where, window))
    for key in ("SUFeedURL", "ZEVReliabilityDirectory", "ZEVManifestPublicKey"):
        if key in info:
            problems.check(isinstance(info[key], str), "%s: %s is not a string" % (where, key))
    if "SUPublicEDKey" in info:
        try:
            raw = base64.b64decode(info["SUPublicEDKey"], validate=True)
        except Exception:
            raw = b""
        problems.check(len(raw) == 32, "%s: SUPublicEDKey is not a 32-byte key" % where)


def check_agent(agent, name, bundle, where, problems):
    problems.check(agent.get("Label") == AGENT_LABEL and name == AGENT_LABEL + ".plist",
                   "%s: Label %r does not match %s" % (where, agent.get("Label"), name))
    program = agent.get("BundleProgram")
    # SMAppService resolves BundleProgram against the bundle: it must stay in it.
    if problems.check(isinstance(program, str) and program and not program.startswith("/")
                      and ".." not in pathlib.PurePosixPath(program).parts,
                      "%s: BundleProgram %r is not a path inside the bundle" % (where, program)):
        if bundle is not None:
            problems.check((bundle / program).is_file(),
                           "%s: BundleProgram %s is not in %s" % (where, program, bundle))
    problems.check(BUNDLE_ID in (agent.get("AssociatedBundleIdentifiers") or []),
                   "%s: AssociatedBundleIdentifiers does not name %s" % (where, BUNDLE_ID))
    for key in ("RunAtLoad", "KeepAlive"):
        problems.check(agent.get(key) is True, "%s: %s is not true" % (where, key))


def check_bundle(bundle):
    problems = Problems()
    plists = sorted(bundle.rglob("*.plist"))
    # Sparkle.framework brings plists of its own; they are Sparkle's to check.
    plists = [p for p in plists if "Frameworks" not in p.relative_to(bundle).parts]
    info_path = bundle / "Contents" / "Info.plist"
    agent_path = bundle / "Contents" / "Library" / "LaunchAgents" / (AGENT_LABEL + ".plist")
    for required in (info_path, agent_path):
        problems.check(required in plists, "%s is missing" % required)
    for path in plists:
        value = load(path, problems)
        if value is None:
            continue
        if path == info_path:
            check_info(value, path, problems)
            executable = value.get("CFBundleExecutable", "")
            problems.check(any((bundle / "Contents" / d / executable).is_file()
                               for d in ("MacOS", "Linux")),
                           "%s: CFBundleExecutable %r is not in the bundle" % (path, executable))
        elif path.parent.name == "LaunchAgents":
            check_agent(value, path.name, bundle, path, problems)
    print("plist check: %d property list(s) in %s" % (len(plists), bundle))
    return problems


KEY = base64.b64encode(bytes(range(32))).decode()

# name, -D settings, expected Info.plist entries (None: key absent), whether
# configuring must fail.
TEMPLATE_CASES = [
    ("defaults", {}, {"SUFeedURL": None, "SUPublicEDKey": None,
                      "ZEVReliabilityDirectory": None, "LSMinimumSystemVersion": "13.0"}, False),
    ("all set", {"ZEV_UPDATE_FEED_URL": "https://updates.example/appcast.xml",
                 "ZEV_UPDATE_PUBLIC_ED_KEY": KEY, "ZEV_RELIABILITY_DIRECTORY": "/var/zev",
                 "CMAKE_OSX_DEPLOYMENT_TARGET": "14.2"},
     {"SUFeedURL": "https://updates.example/appcast.xml", "SUPublicEDKey": KEY,
      "ZEVReliabilityDirectory": "/var/zev", "LSMinimumSystemVersion": "14.2"}, False),
    ("XML specials survive", {"ZEV_UPDATE_FEED_URL": "https://u.example/a?x=1&y=<2>",
                              "ZEV_RELIABILITY_DIRECTORY": "~/a&b<c]]>d"},
     {"SUFeedURL": "https://u.example/a?x=1&y=<2>",
      "ZEVReliabilityDirectory": "~/a&b<c]]>d"}, False),
    ("non-ASCII path", {"ZEV_RELIABILITY_DIRECTORY": "~/Überwachung · caméras"},
     {"ZEVReliabilityDirectory": "~/Überwachung · caméras"}, False),
    ("key not base64", {"ZEV_UPDATE_PUBLIC_ED_KEY": "not a key"}, {}, True),
    ("key of 16 bytes", {"ZEV_UPDATE_PUBLIC_ED_KEY": base64.b64encode(bytes(16)).decode()},
     {}, True),
]


def check_templates(source_root, cmake):
    problems = Problems()
    for name, settings, expected, must_fail in TEMPLATE_CASES:
        with tempfile.TemporaryDirectory() as out:
            cmd = [cmake, "-DSOURCE_DIR=" + str(source_root), "-DOUTPUT_DIR=" + out]
            cmd += ["-D%s=%s" % item for item in settings.items()]
            cmd += ["-P", str(HERE / "configure_plists.cmake")]
            proc = subprocess.run(cmd, capture_output=True, text=True)
            if must_fail:
                problems.check(proc.returncode != 0, "%s: configuring should fail" % name)
                continue
            if not problems.check(proc.returncode == 0,
                                  "%s: configuring failed: %s" % (name, proc.stderr.strip())):
                continue
            where = "%s (Info.plist)" % name
            info = load(pathlib.Path(out) / "Info.plist", problems)
            if info is not None:
                check_info(info, where, problems)
                for key, value in expected.items():
                    problems.check(info.get(key) == value, "%s: %s is %r, not %r"
                                   % (where, key, info.get(key), value))
            agent = load(pathlib.Path(out) / (AGENT_LABEL + ".plist"), problems)
            if agent is not None:
                check_agent(agent, AGENT_LABEL + ".plist", None, name + " (agent)", problems)
    print("plist check: %d template configuration(s)" % len(TEMPLATE_CASES))
    return problems


def main(argv):
    if len(argv) == 3 and argv[1] == "bundle":
        problems = check_bundle(pathlib.Path(argv[2]))
    elif len(argv) == 4 and argv[1] == "templates":
        problems = check_templates(pathlib.Path(argv[2]), argv[3])
    else:
        print(__doc__)
        return 2
    for item in problems.items:
        print("FAIL " + item)
    return 1 if problems.items else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
