#!/usr/bin/python3
"""Checks an init rc file and a ueventd rc file against the grammar that init and ueventd read:
section keywords, every command and service option with its number of arguments (init's own tables,
kept here as data), triggers, services that `start` names, and ueventd's permission lines.

    check-init-rc.py INIT_RC UEVENTD_RC
"""

import re
import sys

UNLIMITED = 1 << 30

# init's builtin commands: the least and the most arguments each takes.
COMMANDS = {
    "bootchart": (1, 1), "chmod": (2, 2), "chown": (2, 3), "class_reset": (1, 1),
    "class_restart": (1, 2), "class_start": (1, 1), "class_stop": (1, 1), "copy": (2, 2),
    "copy_per_line": (2, 2), "domainname": (1, 1), "enable": (1, 1), "exec": (1, UNLIMITED),
    "exec_background": (1, UNLIMITED), "exec_start": (1, 1), "export": (2, 2),
    "hostname": (1, 1), "ifup": (1, 1), "insmod": (1, UNLIMITED), "interface_restart": (1, 1),
    "interface_start": (1, 1), "interface_stop": (1, 1), "load_exports": (1, 1),
    "load_persist_props": (0, 0), "load_system_props": (0, 0), "loglevel": (1, 1),
    "mark_post_data": (0, 0), "mkdir": (1, 6), "mount_all": (0, UNLIMITED),
    "mount": (3, UNLIMITED), "perform_apex_config": (0, 1), "restart": (1, 2),
    "restorecon": (1, UNLIMITED), "restorecon_recursive": (1, UNLIMITED), "rm": (1, 1),
    "rmdir": (1, 1), "setprop": (2, 2), "setrlimit": (3, 3), "start": (1, 1), "stop": (1, 1),
    "swapon_all": (0, 1), "symlink": (2, 2), "sysclktz": (1, 1), "trigger": (1, 1),
    "umount": (1, 1), "umount_all": (0, 1), "update_linker_config": (0, 0),
    "verity_update_state": (0, 0), "wait": (1, 2), "wait_for_prop": (2, 2), "write": (2, 2),
}

# init's service options: the least and the most arguments each takes.
SERVICE_OPTIONS = {
    "capabilities": (0, UNLIMITED), "class": (1, UNLIMITED), "console": (0, 1),
    "critical": (0, 2), "disabled": (0, 0), "enter_namespace": (2, 2), "file": (2, 2),
    "gentle_kill": (0, 0), "group": (1, UNLIMITED), "interface": (2, 2), "ioprio": (2, 2),
    "keycodes": (1, UNLIMITED), "memcg.limit_in_bytes": (1, 1), "memcg.limit_percent": (1, 1),
    "memcg.limit_property": (1, 1), "memcg.soft_limit_in_bytes": (1, 1),
    "memcg.swappiness": (1, 1), "namespace": (1, 2), "oneshot": (0, 0),
    "onrestart": (1, UNLIMITED), "oom_score_adjust": (1, 1), "override": (0, 0),
    "priority": (1, 1), "reboot_on_failure": (1, 1), "restart_period": (1, 1),
    "rlimit": (3, 3), "seclabel": (1, 1), "setenv": (2, 2), "shutdown": (1, 1),
    "sigstop": (0, 0), "socket": (3, 6), "stdio_to_kmsg": (0, 0), "task_profiles": (1, UNLIMITED),
    "timeout_period": (1, 1), "updatable": (0, 0), "user": (1, 1), "writepid": (1, UNLIMITED),
}

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
        elif not table[keyword][0] <= len(args) <= table[keyword][1]:
            errors.append(f"{where}: {keyword} takes {table[keyword][0]} to "
                          f"{min(table[keyword][1], 99)} arguments, not {len(args)}")
        elif section == "on" and keyword in ("start", "stop", "restart", "enable"):
            started.append((where, args[0]))
        elif keyword == "mkdir" and len(args) > 1 and not MODE.match(args[1]):
            errors.append(f"{where}: bad mode {args[1]}")
    errors += [f"{where}: no service {name} here" for where, name in started
               if name not in services]
    return errors


def check_ueventd_rc(path):
    errors = []
    for number, _, fields in lines(path):
        where = f"{path}:{number}"
        if not fields[0].startswith(("/dev/", "/sys/")):
            errors.append(f"{where}: not a /dev or /sys permission line")
        elif len(fields) != (4 if fields[0].startswith("/dev/") else 5):
            errors.append(f"{where}: a line is PATH [ATTRIBUTE (for /sys)] MODE USER GROUP")
        elif not MODE.match(fields[-3]):
            errors.append(f"{where}: bad mode {fields[-3]}")
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
