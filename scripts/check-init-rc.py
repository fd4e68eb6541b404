#!/usr/bin/python3
"""Checks an init rc file and a ueventd rc file against the grammar that Android 15's init and
ueventd read: section keywords, every command and service option with its number of arguments
(init's own tables, kept here as data), triggers, services that `start` names, and ueventd's
permission lines, other single-line keywords and sections.

    check-init-rc.py INIT_RC UEVENTD_RC
"""

import re
import sys

UNLIMITED = 1 << 30

# init's builtin commands (init/builtins.cpp) as every Android 15 release has them: the least and
# the most arguments each takes. remount_userdata (up to android-15.0.0_r5) and swapoff (from r6)
# are each in some releases only, so a file that used either would not load on every device.
COMMANDS = {
    "bootchart": (1, 1), "chmod": (2, 2), "chown": (2, 3), "class_reset": (1, 1),
    "class_restart": (1, 2), "class_start": (1, 1), "class_stop": (1, 1), "copy": (2, 2),
    "copy_per_line": (2, 2), "domainname": (1, 1), "enable": (1, 1),
    "enter_default_mount_ns": (0, 0), "exec": (1, UNLIMITED), "exec_background": (1, UNLIMITED),
    "exec_start": (1, 1), "export": (2, 2), "hostname": (1, 1), "ifup": (1, 1),
    "init_user0": (0, 0), "insmod": (1, UNLIMITED), "installkey": (1, 1),
    "interface_restart": (1, 1), "interface_start": (1, 1), "interface_stop": (1, 1),
    "load_exports": (1, 1), "load_persist_props": (0, 0), "load_system_props": (0, 0),
    "loglevel": (1, 1), "mark_post_data": (0, 0), "mkdir": (1, 6), "mount_all": (0, UNLIMITED),
    "mount": (3, UNLIMITED), "perform_apex_config": (0, 1), "readahead": (1, 2),
    "restart": (1, 2), "restorecon": (1, UNLIMITED), "restorecon_recursive": (1, UNLIMITED),
    "rm": (1, 1), "rmdir": (1, 1), "setprop": (2, 2), "setrlimit": (3, 3), "start": (1, 1),
    "stop": (1, 1), "swapon_all": (0, 1), "symlink": (2, 2), "sysclktz": (1, 1),
    "trigger": (1, 1), "umount": (1, 1), "umount_all": (0, 1), "update_linker_config": (0, 0),
    "verity_update_state": (0, 0), "wait": (1, 2), "wait_for_prop": (2, 2), "write": (2, 2),
}

# The supplementary groups a service may have besides its group (NR_SVC_SUPP_GIDS in
# init/service.h; 12 before android-14.0.0_r29).
SUPPLEMENTARY_GROUPS = 32

# init's service options (init/service_parser.cpp): the least and the most arguments each takes.
SERVICE_OPTIONS = {
    "capabilities": (0, UNLIMITED), "class": (1, UNLIMITED), "console": (0, 1),
    "critical": (0, 2), "disabled": (0, 0), "enter_namespace": (2, 2), "file": (2, 2),
    "gentle_kill": (0, 0), "group": (1, 1 + SUPPLEMENTARY_GROUPS), "interface": (2, 2),
    "ioprio": (2, 2), "keycodes": (1, UNLIMITED), "memcg.limit_in_bytes": (1, 1),
    "memcg.limit_percent": (1, 1), "memcg.limit_property": (1, 1),
    "memcg.soft_limit_in_bytes": (1, 1), "memcg.swappiness": (1, 1), "namespace": (1, 2),
    "oneshot": (0, 0), "onrestart": (1, UNLIMITED), "oom_score_adjust": (1, 1),
    "override": (0, 0), "priority": (1, 1), "reboot_on_failure": (1, 1),
    "restart_period": (1, 1), "rlimit": (3, 3), "seclabel": (1, 1), "setenv": (2, 2),
    "shutdown": (1, 1), "sigstop": (0, 0), "socket": (3, 6), "stdio_to_kmsg": (0, 0),
    "task_profiles": (1, UNLIMITED), "timeout_period": (1, 1), "updatable": (0, 0),
    "user": (1, 1), "writepid": (1, UNLIMITED),
}

# ueventd's single-line keywords other than the permission lines (init/ueventd_parser.cpp): the
# least and the most arguments each takes. Its sections are `import FILE` and `subsystem NAME`
# (the `driver` section came after android-15.0.0_r1).
UEVENTD_KEYWORDS = {
    "firmware_directories": (1, UNLIMITED), "external_firmware_handler": (3, 4),
    "modalias_handling": (1, 1), "uevent_socket_rcvbuf_size": (1, 1),
    "parallel_restorecon_dir": (1, 1), "parallel_restorecon": (1, 1),
}
ENABLED_DISABLED = ("modalias_handling", "parallel_restorecon")
# A subsystem's options, each with its one argument: how a node's name is found, and where.
SUBSYSTEM_DEVNAMES = ("uevent_devname", "uevent_devpath", "sys_name")
# A permission line's one optional field after MODE USER GROUP.
NO_FNM_PATHNAME = "no_fnm_pathname"

TRIGGER = re.compile(r"^(property:[A-Za-z0-9_.$@:-]+=\S*|[A-Za-z0-9_-]+)$")
SERVICE_NAME = re.compile(r"^[A-Za-z0-9_.@-]+$")
MODE = re.compile(r"^0?[0-7]{3,4}$")


def lines(path):
    """(number, indented, fields) of every line with content, comments left out."""
    with open(path) as f:
        for number, text in enumerate(f, 1):
            fields = text.split("#", 1)[0].split()
            if fields:
                yield number, text[0].isspace(), fields


def count_error(keyword, args, table):
    """Why `keyword` with `args` does not fit its entry in `table`, or None when it does."""
    least, most = table[keyword]
    if least <= len(args) <= most:
        return None
    if most == UNLIMITED:
        return f"{keyword} takes at least {least} arguments, not {len(args)}"
    return f"{keyword} takes {least} to {most} arguments, not {len(args)}"


def check_init_rc(path):
    errors, services, started = [], set(), []
    section = None
    for number, indented, fields in lines(path):
        where = f"{path}:{number}"
        keyword, args = fields[0], fields[1:]
        if not indented:
            section = keyword
            if keyword == "on":
                triggers = " ".join(args).split("&&")
                if not args or not all(TRIGGER.match(t.strip()) for t in triggers):
                    errors.append(f"{where}: bad trigger: {' '.join(args)}")
            elif keyword == "service":
                if len(args) < 2 or not SERVICE_NAME.match(args[0]) or not args[1].startswith("/"):
                    errors.append(f"{where}: a service is: service NAME /PATH [ARGUMENT...]")
                elif args[0] in services:
                    errors.append(f"{where}: service {args[0]} defined twice")
                else:
                    services.add(args[0])
            elif keyword != "import" or len(args) != 1:
                errors.append(f"{where}: unknown section: {keyword}")
                section = None
            continue
        table = {"on": COMMANDS, "service": SERVICE_OPTIONS}.get(section)
        if table is None:
            errors.append(f"{where}: {keyword} outside a section")
        elif keyword not in table:
            kind = "command" if section == "on" else "service option"
            errors.append(f"{where}: unknown {kind}: {keyword}")
        elif count_error(keyword, args, table):
            errors.append(f"{where}: {count_error(keyword, args, table)}")
        elif section == "on" and keyword in ("start", "stop", "restart", "enable"):
            started.append((where, args[0]))
        elif keyword == "mkdir" and len(args) > 1 and not MODE.match(args[1]):
            errors.append(f"{where}: bad mode {args[1]}")
    errors += [f"{where}: no service {name} here" for where, name in started
               if name not in services]
    return errors


def permission_line_error(fields):
    """What is wrong with a /dev/ or /sys/ line: PATH [ATTRIBUTE] MODE USER GROUP [OPTION]."""
    least = 5 if fields[0].startswith("/sys/") else 4
    if len(fields) not in (least, least + 1):
        attribute = " ATTRIBUTE" if least == 5 else ""
        return f"a line is PATH{attribute} MODE USER GROUP [{NO_FNM_PATHNAME}]"
    if len(fields) > least and fields[least] != NO_FNM_PATHNAME:
        return f"unknown option {fields[least]}, only {NO_FNM_PATHNAME}"
    if not MODE.match(fields[least - 3]):
        return f"bad mode {fields[least - 3]}"
    return None


def check_ueventd_rc(path):
    """ueventd reads sections by keyword, not by indentation: a line that is neither a permission
    line, a single-line keyword nor a section keyword belongs to the section above it."""
    errors, subsystems = [], set()
    section = None
    for number, _, fields in lines(path):
        where = f"{path}:{number}"
        keyword, args = fields[0], fields[1:]
        error = None
        if keyword.startswith(("/dev/", "/sys/")):
            section = None
            error = permission_line_error(fields)
        elif keyword in UEVENTD_KEYWORDS:
            section = None
            error = count_error(keyword, args, UEVENTD_KEYWORDS)
            if not error and keyword in ENABLED_DISABLED and args[0] not in ("enabled", "disabled"):
                error = f"{keyword} is enabled or disabled, not {args[0]}"
        elif keyword == "import":
            section = None
            if len(args) != 1:
                error = "import takes one file"
        elif keyword == "subsystem":
            section = keyword
            if len(args) != 1:
                error = "a subsystem has one name"
            elif args[0] in subsystems:
                error = f"subsystem {args[0]} given twice"
            subsystems.update(args[:1])
        elif section != "subsystem":
            error = f"not a permission line, keyword or section: {keyword}"
        elif keyword == "devname":
            if len(args) != 1 or args[0] not in SUBSYSTEM_DEVNAMES:
                error = f"devname is one of {', '.join(SUBSYSTEM_DEVNAMES)}"
        elif keyword == "dirname":
            if len(args) != 1 or not args[0].startswith("/"):
                error = "dirname is one absolute path"
        else:
            error = f"unknown subsystem option: {keyword}"
        if error:
            errors.append(f"{where}: {error}")
    return errors


def main():
    if len(sys.argv) != 3:
        print(__doc__)
        return 2
    errors = check_init_rc(sys.argv[1]) + check_ueventd_rc(sys.argv[2])
    for error in errors:
        print(error)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
