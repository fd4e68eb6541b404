#!/usr/bin/python3
"""Builds the daemon's vendor SELinux policy with a platform's policy, as the Android build does,
and checks the compiled policy against the table of accesses the daemon, its clients, init,
ueventd and an engineer's shell make on a device.

    check-sepolicy.py [--platform DIR] [--accesses FILE] [--keep DIR]

DIR is a platform system/sepolicy tree (public/, private/, vendor/, reqd_mask/); without one at
--platform, the environment's TARVO_PLATFORM_SEPOLICY is used, and without either the check says so
and exits 77 (skipped). For each build variant (user, userdebug):

- the neverallow build: public, private, vendor and our policy, checkpolicy -M -c 30;
- the vendor-only build: public, reqd_mask, vendor and our policy, checkpolicy -C -M -c 30, which
  fails on any platform-private type that our policy names;
- file_contexts (the platform's and ours) compiled against the policy by sefcontext_compile, and
  property_contexts checked: each context valid, each type a property type, each line well formed;
- the vendor property namespace check, the platform's tests/check_prop_prefix.py --strict;
- every row of the access table that applies to the variant, looked up in the compiled policy.
"""

import argparse
import glob
import os
import shutil
import subprocess
import sys
import tempfile

import selinux
import setools

SKIPPED = 77
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
OURS = os.path.join(ROOT, "sepolicy")
VARIANTS = ("user", "userdebug")

# The order in which the Android build concatenates policy sources of each kind; "attributes" and
# the .te files of each directory come between the two lists, directory by directory.
KINDS_BEFORE_TE = ["security_classes", "initial_sids", "access_vectors", "global_macros",
                   "neverallow_macros", "mls_macros", "mls_decl", "mls", "policy_capabilities",
                   "te_macros", "ioctl_defines", "ioctl_macros"]
KINDS_AFTER_TE = ["roles_decl", "roles", "users", "initial_sid_contexts", "fs_use",
                  "genfs_contexts", "port_contexts"]

# The m4 definitions of an arm64 device build with full Treble enforcement.
POLICY_DEFINES = {
    "mls_num_sens": "1", "mls_num_cats": "1024", "target_arch": "arm64",
    "target_full_treble": "true", "target_compatible_property": "true",
    "target_treble_sysprop_neverallow": "true", "target_enforce_sysprop_owner": "true",
    "target_exclude_build_test": "false", "target_with_asan": "false",
    "target_with_native_coverage": "false", "target_with_dexpreopt": "true",
    "target_requires_insecure_execmem_for_swiftshader": "false",
    "target_enforce_debugfs_restriction": "true", "target_recovery": "false",
    "target_board_api_level": "1000000",
}
CONTEXTS_DEFINES = {"target_with_asan": "false", "target_with_native_coverage": "false",
                    "target_flag_dummy": "false"}

ALLOWED_PROPERTY_PREFIXES = [
    "ctl.odm.", "ctl.vendor.", "ctl.start$odm.", "ctl.start$vendor.", "ctl.stop$odm.",
    "ctl.stop$vendor.", "init.svc.odm.", "init.svc.vendor.", "ro.boot.", "ro.hardware.", "ro.odm.",
    "ro.vendor.", "odm.", "persist.odm.", "persist.vendor.", "vendor."]
ALLOWED_CONTEXT_PREFIXES = ["vendor_", "odm_"]
PROPERTY_VALUE_TYPES = {"string", "bool", "int", "uint", "double", "size", "enum"}

# Permissions that a property access needs, as the platform's get_prop and set_prop grant them.
PROPERTY_READ = {"open", "read", "getattr", "map"}
PROPERTY_SOCKET = "/dev/socket/property_service"

# Processes that label what they create from file_contexts themselves; anything else gets the
# kernel's label (a type transition, else its directory's label).
LABELS_FROM_FILE_CONTEXTS = {"init", "vendor_init", "ueventd"}


class Failure(Exception):
    pass


def run(command, **kwargs):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            **kwargs)
    if result.returncode != 0:
        raise Failure(f"{' '.join(command[:2])} ... failed:\n{result.stdout}")
    return result.stdout


def source_file(path):
    """A copy of the platform tree may hold a symbolic link as a file naming its target."""
    if os.path.getsize(path) < 256:
        with open(path) as f:
            text = f.read().strip()
        target = os.path.normpath(os.path.join(os.path.dirname(path), text))
        if text.startswith("../") and "\n" not in text and os.path.isfile(target):
            return target
    return path


def policy_sources(platform, directories):
    def of_kind(kind):
        return [os.path.join(d, kind) for d in directories if os.path.isfile(os.path.join(d, kind))]

    sources = []
    flagging = os.path.join(platform, "flagging", "te_macros")
    if os.path.isfile(flagging):
        sources.append(flagging)
    for kind in KINDS_BEFORE_TE:
        sources += of_kind(kind)
    for d in directories:
        if os.path.isfile(os.path.join(d, "attributes")):
            sources.append(os.path.join(d, "attributes"))
        sources += sorted(glob.glob(os.path.join(d, "*.te")))
    for kind in KINDS_AFTER_TE:
        sources += of_kind(kind)
    return [source_file(s) for s in sources]


def m4(defines, sources, output):
    command = ["m4", "-s"] + [f"-D{k}={v}" for k, v in defines.items()] + sources
    with open(output, "w") as out:
        result = subprocess.run(command, stdout=out, stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        raise Failure(f"m4 failed:\n{result.stderr}")


def build(platform, variant, work):
    defines = dict(POLICY_DEFINES, target_build_variant=variant)
    full = [os.path.join(platform, d) for d in ("public", "private", "vendor")] + [OURS]
    m4(defines, policy_sources(platform, full), f"{work}/{variant}.conf")
    run(["checkpolicy", "-M", "-c", "30", "-o", f"{work}/{variant}.policy",
         f"{work}/{variant}.conf"])

    vendor_only = [os.path.join(platform, d) for d in ("public", "reqd_mask", "vendor")] + [OURS]
    m4(defines, policy_sources(platform, vendor_only), f"{work}/{variant}-vendor.conf")
    run(["checkpolicy", "-C", "-M", "-c", "30", "-o", f"{work}/{variant}-vendor.cil",
         f"{work}/{variant}-vendor.conf"])

    contexts_defines = dict(CONTEXTS_DEFINES, target_build_variant=variant)
    file_contexts = f"{work}/{variant}.file_contexts"
    m4(contexts_defines, [os.path.join(platform, "private", "file_contexts"),
                          os.path.join(platform, "vendor", "file_contexts"),
                          os.path.join(OURS, "file_contexts")], file_contexts)
    run(["sefcontext_compile", "-p", f"{work}/{variant}.policy", "-o", f"{file_contexts}.bin",
         file_contexts])

    property_contexts = f"{work}/{variant}.property_contexts"
    m4(contexts_defines, [os.path.join(platform, "private", "property_contexts"),
                          os.path.join(OURS, "property_contexts")], property_contexts)
    ours = f"{work}/{variant}.vendor_property_contexts"
    m4(contexts_defines, [os.path.join(OURS, "property_contexts")], ours)
    return f"{work}/{variant}.policy", file_contexts, property_contexts, ours


def check_property_namespace(platform, vendor_property_contexts):
    run([sys.executable, os.path.join(platform, "tests", "check_prop_prefix.py"), "--strict",
         "--property-contexts", vendor_property_contexts,
         "--allowed-property-prefix"] + ALLOWED_PROPERTY_PREFIXES +
        ["--allowed-context-prefix"] + ALLOWED_CONTEXT_PREFIXES)


def read_property_contexts(path):
    """(name, type, exact, context) for every entry, in file order."""
    entries = []
    with open(path) as f:
        for number, line in enumerate(f, 1):
            fields = line.split()
            if not fields or fields[0].startswith("#"):
                continue
            context = fields[1].split(":") if len(fields) > 1 else []
            match = len(fields) > 2 and fields[2]
            value_type = len(fields) > 3 and fields[3]
            if (len(context) != 4 or match not in (False, "exact", "prefix") or
                    (value_type and value_type not in PROPERTY_VALUE_TYPES) or
                    (value_type == "enum") != (len(fields) > 4)):
                raise Failure(f"{path}:{number}: malformed property context: {line.strip()}")
            entries.append((fields[0], context[2], match == "exact", fields[1]))
    return entries


def check_property_contexts(policy, policy_path, entries, work):
    """Every context valid in the policy (libselinux's check, as for file_contexts) and every type
    a property type."""
    as_paths = f"{work}/property_contexts_as_paths"
    with open(as_paths, "w") as f:
        f.writelines(f"/{name} {context}\n" for name, _, _, context in entries)
    run(["sefcontext_compile", "-p", policy_path, "-o", f"{as_paths}.bin", as_paths])
    property_types = {str(t) for t in policy.lookup_typeattr("property_type").expand()}
    for name, type_name, _, context in entries:
        if type_name not in property_types:
            raise Failure(f"property {name}: {context} is not a property type in the policy")


def property_type(entries, name):
    """The label that init's property service gives a property: an exact entry, else the
    longest matching prefix; a later entry wins over an earlier one of the same length."""
    best, best_length = None, -1
    for entry, type_name, exact, _ in entries:
        if exact:
            if entry == name:
                return type_name
        elif name.startswith(entry) and len(entry) >= best_length:
            best, best_length = type_name, len(entry)
    return best


class Labels:
    """File labels as a device gives them: file_contexts for paths, genfscon for /sys."""

    def __init__(self, policy, file_contexts):
        selinux.matchpathcon_fini()
        if selinux.matchpathcon_init(file_contexts) != 0:
            raise Failure(f"{file_contexts}: libselinux cannot load it")
        self.sysfs = sorted(((str(g.path), str(g.context.type_)) for g in policy.genfscons()
                             if str(g.fs) == "sysfs"), key=lambda g: -len(g[0]))

    def of(self, path, mode=0):
        if path == "/sys" or path.startswith("/sys/"):
            inside = path[len("/sys"):] or "/"
            for prefix, type_name in self.sysfs:
                if inside.startswith(prefix):
                    return type_name
            raise Failure(f"{path}: no genfscon for it")
        status, context = selinux.matchpathcon(path, mode)
        if status != 0:
            raise Failure(f"{path}: no file context for it")
        return context.split(":")[2]


class Policy:
    """The compiled policy's rules, indexed once by source, target and class: the rules name
    attributes, so a type's rules are those of the type and of each of its attributes."""

    def __init__(self, path):
        self.policy = setools.SELinuxPolicy(path)
        self.allow, self.xperms, self.transitions = {}, {}, {}
        for rule in self.policy.terules():
            key = (str(rule.source), str(rule.target), str(rule.tclass))
            kind = str(rule.ruletype)
            if kind == "allow":
                self.allow.setdefault(key, set()).update(rule.perms)
            elif kind == "allowxperm" and rule.xperm_type == "ioctl":
                self.xperms.setdefault(key, set()).update(rule.perms)
            elif kind == "type_transition":
                try:
                    name = rule.filename
                except setools.exception.TERuleNoFilename:
                    name = None
                self.transitions[key + (name,)] = str(rule.default)

    def names(self, type_name):
        found = self.policy.lookup_type(type_name)
        return [type_name] + [str(a) for a in found.attributes()]

    def pairs(self, source, target):
        for s in self.names(source):
            for t in self.names(target) + (["self"] if source == target else []):
                yield s, t

    def allowed(self, source, target, tclass, perms):
        """The permissions of `perms` that no allow rule grants."""
        granted = set()
        for s, t in self.pairs(source, target):
            granted |= self.allow.get((s, t, tclass), set())
        return set(perms) - granted

    def ioctl_allowed(self, source, target, tclass, command):
        """With no allowxperm rule for the pair, every ioctl command is allowed."""
        listed = [self.xperms[(s, t, tclass)] for s, t in self.pairs(source, target)
                  if (s, t, tclass) in self.xperms]
        return not listed or any(command in commands for commands in listed)

    def type_transition(self, source, parent, tclass, name):
        """The type a new object gets from a type transition rule, a named one first."""
        for wanted in (name, None):
            for s, t in self.pairs(source, parent):
                if (s, t, tclass, wanted) in self.transitions:
                    return self.transitions[(s, t, tclass, wanted)]
        return None

    def permissive(self, domain):
        return self.policy.lookup_type(domain).ispermissive


def parent_directories(path):
    parts = path.rstrip("/").split("/")
    return ["/".join(parts[:i]) or "/" for i in range(1, len(parts))]


def parse_table(path):
    rows = []
    with open(path) as f:
        for number, line in enumerate(f, 1):
            text = line.split("#", 1)[0].split()
            if not text:
                continue
            if len(text) < 3:
                raise Failure(f"{path}:{number}: a row is WHO CLASS [PERMISSION...] OBJECT")
            who, variants = (text[0].split("@", 1) + [None])[:2]
            rows.append({"line": f"{os.path.basename(path)}:{number}", "who": who,
                         "variants": variants.split(",") if variants else list(VARIANTS),
                         "class": text[1], "perms": text[2:-1], "object": text[-1]})
    return rows


def check_row(row, policy, labels, properties):
    """Returns the reasons that the row's access would be denied, an empty list when allowed."""
    who, tclass, obj = row["who"], row["class"], row["object"]
    wanted = [p for p in row["perms"] if not p.startswith("!")]
    refused = [p[1:] for p in row["perms"] if p.startswith("!")]
    problems = []

    def need(target, target_class, perms, what):
        missing = policy.allowed(who, target, target_class, perms)
        if missing:
            problems.append(f"denied: {what} ({target}): {target_class} "
                            f"{{ {' '.join(sorted(missing))} }}")

    def must_not(target, target_class, perms, what):
        granted = set(perms) - policy.allowed(who, target, target_class, perms)
        if granted:
            problems.append(f"{what} ({target}): {target_class} {{ {' '.join(sorted(granted))} }}"
                            " is allowed")

    if tclass == "permissive":
        if not policy.permissive(obj):
            problems.append(f"{obj} is not permissive")
        return problems

    if tclass == "property":
        target = property_type(properties, obj)
        if target is None:
            return [f"property {obj} has no context"]
        for perm in wanted:
            if perm in ("get", "set"):
                need(target, "file", PROPERTY_READ, f"read property {obj}")
            if perm == "set":
                need(target, "property_service", {"set"}, f"set property {obj}")
                need(labels.of(PROPERTY_SOCKET), "sock_file", {"write"}, PROPERTY_SOCKET)
                need("init", "unix_stream_socket", {"connectto"}, "the property service")
        for perm in refused:
            if perm == "set":
                must_not(target, "property_service", {"set"}, f"set property {obj}")
            else:
                must_not(target, "file", PROPERTY_READ, f"read property {obj}")
        return problems

    if tclass in ("process", "unix_stream_socket"):
        if wanted:
            need(obj, tclass, set(wanted), obj)
        if refused:
            must_not(obj, tclass, set(refused), obj)
        return problems

    if tclass == "exec":
        domain, path = row["perms"][0], obj
        for directory in parent_directories(path):
            need(labels.of(directory), "dir", {"search"}, directory)
        label = labels.of(path)
        need(label, "file", {"execute", "read", "open", "getattr", "map"}, path)
        if domain == who:
            need(label, "file", {"execute_no_trans"}, path)
        else:
            need(domain, "process", {"transition"}, f"enter {domain}")
            if policy.allowed(domain, label, "file", {"entrypoint"}):
                problems.append(f"{path} ({label}) is not an entrypoint of {domain}")
            if policy.type_transition(who, label, "process", None) != domain:
                problems.append(f"executing {path} ({label}) does not enter {domain}")
        return problems

    # A path: search on every directory above it, then the permissions on the object itself.
    path = obj
    for directory in parent_directories(path):
        need(labels.of(directory), "dir", {"search"}, directory)
    parent = parent_directories(path)[-1]
    parent_label = labels.of(parent)
    mode = {"dir": 0o040000, "chr_file": 0o020000, "sock_file": 0o140000}.get(tclass, 0o100000)
    label = labels.of(path, mode)
    perms = set(wanted)
    if "create" in perms:
        if who not in LABELS_FROM_FILE_CONTEXTS:
            name = os.path.basename(path.rstrip("/"))
            made = policy.type_transition(who, parent_label, tclass, name) or parent_label
            if made != label:
                problems.append(f"{path} is created as {made}, but file_contexts labels it {label}")
                label = made
        need(parent_label, "dir", {"write", "add_name"}, f"create in {parent}")
    if perms & {"unlink", "rename", "rmdir"}:
        need(parent_label, "dir", {"write", "remove_name"}, f"remove from {parent}")
    if "rename" in perms:
        need(parent_label, "dir", {"add_name"}, f"rename in {parent}")
    ioctls = {p for p in perms if p.startswith("ioctl=")}
    refused_ioctls = {p for p in refused if p.startswith("ioctl=")}
    perms -= ioctls
    if ioctls:
        perms.add("ioctl")
    if perms:
        need(label, tclass, perms, path)
    for ioctl in ioctls | refused_ioctls:
        command = int(ioctl.split("=", 1)[1], 0)
        allowed = (not policy.allowed(who, label, tclass, {"ioctl"}) and
                   policy.ioctl_allowed(who, label, tclass, command))
        if allowed != (ioctl in ioctls):
            problems.append(f"{path} ({label}): ioctl {command:#x} is "
                            f"{'allowed' if allowed else 'not in the allowed ioctls'}")
    if set(refused) - refused_ioctls:
        must_not(label, tclass, set(refused) - refused_ioctls, path)
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--platform")
    parser.add_argument("--accesses", default=os.path.join(ROOT, "tests", "device",
                                                           "policy_accesses.txt"))
    parser.add_argument("--keep", help="keep the built policies and contexts in this directory")
    args = parser.parse_args()
    platform = next((p for p in (args.platform, os.environ.get("TARVO_PLATFORM_SEPOLICY"))
                     if p and os.path.isdir(os.path.join(p, "private"))), None)
    if not platform:
        print(f"No platform policy at {args.platform}: set TARVO_PLATFORM_SEPOLICY (or CMake's "
              "TARVO_PLATFORM_SEPOLICY, or pass --platform) to a platform system/sepolicy tree, "
              "e.g. ../shared/platform/sepolicy-android15. Skipped.")
        return SKIPPED

    work = args.keep or tempfile.mkdtemp()
    os.makedirs(work, exist_ok=True)
    rows = parse_table(args.accesses)
    failures = 0
    try:
        for variant in VARIANTS:
            policy_path, file_contexts, property_contexts, ours = build(platform, variant, work)
            policy = Policy(policy_path)
            properties = read_property_contexts(property_contexts)
            check_property_contexts(policy.policy, policy_path, properties, work)
            check_property_namespace(platform, ours)
            labels = Labels(policy.policy, file_contexts)
            checked = 0
            for row in rows:
                if variant not in row["variants"]:
                    continue
                checked += 1
                for problem in check_row(row, policy, labels, properties):
                    failures += 1
                    print(f"{row['line']}: {variant}: {row['who']}: {problem}", flush=True)
            print(f"{variant}: policy built, neverallow rules hold, contexts valid, "
                  f"{checked} accesses checked")
    except Failure as failure:
        print(failure)
        return 1
    finally:
        if not args.keep:
            shutil.rmtree(work)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
