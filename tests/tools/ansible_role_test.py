#!/usr/bin/env python3
"""deploy/ansible/install-templates.yml with ansible-core against three local
hosts, one home folder each: a (the connecting user's home, the installer's
proposal), b (template_kit_home, template_kit_target ~/Templates, which the
starter file does not list) and c (a folder stands where a package file goes:
the installation fails). First run, second run, check mode with a newer kit.

  ansible_role_test.py SOURCE_DIR BUILD_DIR
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

source_dir, build_dir = sys.argv[1], sys.argv[2]
work = tempfile.mkdtemp()
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL: " + what, file=sys.stderr)


def write(path, text, mtime=1600000000):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as f:
        f.write(text)
    os.utime(path, (mtime, mtime))


def read(path):
    with open(path) as f:
        return f.read()


def snapshot(root):
    """Every entry below root: kind, size, time to the nanosecond, contents."""
    entries = {}
    for folder, dirs, files in os.walk(root):
        dirs[:] = [d for d in dirs if d != ".ansible"]  # ansible-playbook's own, in a's home
        for name in dirs + files:
            path = os.path.join(folder, name)
            st = os.lstat(path)
            contents = read(path) if name in files else None
            entries[os.path.relpath(path, root)] = (st.st_mode, st.st_size, st.st_mtime_ns, contents)
    return entries


def make_kit(tree, kit):
    subprocess.run(["bash", os.path.join(source_dir, "tools/make-kit.sh"), tree, kit,
                    "--with-tpk-list", "-q", "--lang", "en:Orders:Vendor:/docs/readme.html"],
                   env=dict(os.environ, BUILD_DIR=build_dir), check=True, stdout=subprocess.DEVNULL)


def play(kit, *options):
    """Runs the playbook; the recap per host and the failure message per host."""
    env = dict(os.environ, HOME=home["a"], TMPDIR=tmp, ANSIBLE_REMOTE_TEMP=ansible_tmp,
               ANSIBLE_LOCAL_TEMP=ansible_tmp, ANSIBLE_NOCOLOR="1", ANSIBLE_RETRY_FILES_ENABLED="0")
    env.pop("DISPLAY", None)
    run = subprocess.run(["ansible-playbook", "-i", inventory,
                          os.path.join(source_dir, "deploy/ansible/install-templates.yml"),
                          "-e", "template_kit_src=" + kit] + list(options),
                         env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    recap = {host: {k: int(v) for k, v in re.findall(r"(\w+)=(\d+)", line)}
             for host, line in re.findall(r"^([abc])\s+: (ok=.*)$", run.stdout, re.M)}
    fatal = dict(re.findall(r'^fatal: \[([abc])\]: FAILED! => .*"msg": "(.*)"', run.stdout, re.M))
    check(sorted(recap) == ["a", "b", "c"], "a recap for every host:\n" + run.stdout)
    check(os.listdir(tmp) == [], "temporary files left: %s" % os.listdir(tmp))
    return recap, fatal, run.stdout


try:
    home = {h: os.path.join(work, h) for h in "abc"}
    tmp, ansible_tmp = os.path.join(work, "tmp"), os.path.join(work, "ansible-tmp")
    os.makedirs(tmp)
    tree = os.path.join(work, "templates")
    files = {"docs/readme.html": "<html></html>\n", "Orders/order.cfg": "order\n",
             "Orders/forms/form.cfg": "form\n"}
    for name, text in files.items():
        write(os.path.join(tree, name), text)
    make_kit(tree, os.path.join(work, "kit1"))

    starter = ".Orvo/zelbrun/zelbrun.cfg"
    target = {"a": home["a"] + "/Proposed", "b": home["b"] + "/Templates",
              "c": home["c"] + "/broken"}
    write(os.path.join(home["a"], starter), "ConfigurationTemplatesLocation=%s\n" % target["a"])
    write(os.path.join(home["b"], starter), "X=1\nConfigurationTemplatesLocation=%s/old\n" % home["b"])
    os.makedirs(home["b"] + "/old")
    os.makedirs(target["c"] + "/Orders/order.cfg")
    write(target["c"] + "/docs/readme.html", "kept\n", 1500000000)
    # a's home is also ansible-playbook's: the connecting user's.
    inventory = os.path.join(work, "inventory")
    write(inventory, "\n".join([
        "[desktops]",
        "a",
        "b template_kit_home=%s template_kit_target=~/Templates" % home["b"],
        "c template_kit_home=%s template_kit_target=%s" % (home["c"], target["c"]),
        "[desktops:vars]",
        "ansible_connection=local",
        "ansible_python_interpreter={{ ansible_playbook_python }}", ""]))
    before_c = snapshot(home["c"])

    # First run: two hosts installed, the third fails with the folder and the reason.
    recap, fatal, out = play(os.path.join(work, "kit1"))
    for h in "ab":
        check(recap[h]["changed"] > 0 and recap[h]["failed"] == 0, "first run, host %s: %s" % (h, out))
        for name, text in files.items():
            path = os.path.join(target[h], name)
            check(os.path.exists(path) and read(path) == text
                  and os.stat(path).st_mtime_ns == 1600000000 * 10**9, "installed " + path)
    check(recap["c"]["failed"] == 1, "first run, host c fails: " + out)
    check("installer exit status 1" in fatal.get("c", "")
          and "%s/Orders/order.cfg: Is a directory" % target["c"] in fatal.get("c", ""),
          "host c's message names the folder and the reason: %s" % fatal)
    check(read(os.path.join(home["a"], starter)) == "ConfigurationTemplatesLocation=%s\n" % target["a"],
          "a's starter file: " + read(os.path.join(home["a"], starter)))
    check(read(os.path.join(home["b"], starter)) ==
          "X=1\nConfigurationTemplatesLocation=%s\nConfigurationTemplatesLocation=%s/old\n"
          % (target["b"], home["b"]), "b's starter file: " + read(os.path.join(home["b"], starter)))
    after_c = snapshot(home["c"])
    check({k: v[3] for k, v in after_c.items()} == {k: v[3] for k, v in before_c.items()},
          "host c as it was: %s" % sorted(after_c))

    # Second run of the same kit: no host changes, nothing is touched on a and b.
    before = {h: snapshot(home[h]) for h in "ab"}
    recap, fatal, out = play(os.path.join(work, "kit1"))
    for h in "ab":
        check(recap[h]["changed"] == 0 and recap[h]["failed"] == 0, "second run, host %s: %s" % (h, out))
        check(snapshot(home[h]) == before[h], "second run changed host " + h)
    check(recap["c"]["failed"] == 1, "second run, host c fails: " + out)

    # Check mode with a newer kit (one file newer, one new): a and b would
    # change, c would fail; nothing anywhere is altered.
    tree2 = os.path.join(work, "templates2")
    shutil.copytree(tree, tree2)
    write(tree2 + "/Orders/order.cfg", "order, second edition\n", 1700000000)
    write(tree2 + "/Orders/new.cfg", "new\n", 1700000000)
    make_kit(tree2, os.path.join(work, "kit2"))
    before = {h: snapshot(home[h]) for h in "abc"}
    recap, fatal, out = play(os.path.join(work, "kit2"), "--check")
    for h in "ab":
        check(recap[h]["changed"] > 0 and recap[h]["failed"] == 0, "check mode, host %s: %s" % (h, out))
    check(out.count("1 new, 1 replace, 2 keep, 0 conflict") == 2, "check mode plans: " + out)
    check(recap["c"]["failed"] == 1 and "would fail" in fatal.get("c", "")
          and "Orders/order.cfg" in fatal.get("c", ""), "check mode, host c: %s" % fatal)
    for h in "abc":
        check(snapshot(home[h]) == before[h], "check mode altered host " + h)
finally:
    shutil.rmtree(work, ignore_errors=True)

print("ansible role: %s" % ("%d failures" % len(failures) if failures else "ok"))
sys.exit(1 if failures else 0)
