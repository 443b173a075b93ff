#!/usr/bin/env python3
"""The packages as a machine gets them: installed into a bare Debian, run, removed.

test_packages.py SOURCE_DIR PACKAGES_DIR, as root; ./dev test-packages calls it. The bare root is made once from the
mirror that this machine uses and kept in PACKAGES_DIR; each run unpacks it into a directory of its own. Whatever is
mounted is so in a mount namespace that ends with the run. No service manager runs in there: the server is started as
its unit says, in as much of the sandbox as can be had without one, and is handed its socket as a manager would.
"""
import contextlib
import hashlib
import json
import os
import pathlib
import pwd
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE, PACKAGES = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
sys.path.insert(0, str(SOURCE / "tests/system"))
from picture import Picture, expect_triangle  # noqa: E402

# What building needs: the examples, and the server without its tools.
BUILD_NEEDS = "g++ cmake ninja-build pkg-config libhwy-dev python3"
SEARCH_PATH = "/usr/sbin:/usr/bin:/sbin:/bin"
MEMBER, STRANGER = "member", "stranger"
UNPRIVILEGED = "setpriv", "--no-new-privs", "--inh-caps=-all", "--bounding-set=-all"
# Where the system keeps its own account of what was done.
SETTLED = ("/dev", "/proc", "/sys", "/tmp", "/var/cache", "/var/lib/apt", "/var/lib/dpkg", "/var/log")


def say(text):
    print(f"packages: {text}", flush=True)


def run(*words, **options):
    options = {"check": True, "capture_output": True, "text": True, "timeout": 240} | options
    try:
        return subprocess.run([str(word) for word in words], **options)
    except subprocess.CalledProcessError as error:
        sys.stderr.write(f"{error.stdout}{error.stderr}")
        raise


def field(package, name):
    return run("dpkg-deb", "-f", package, name).stdout.strip()


def needed_of_others(packages):
    """The packages that ours depend on, without ours."""
    own = {field(package, "Package") for package in packages}
    words = ",".join(field(package, "Depends") for package in packages).split(",")
    return sorted({word.split()[0] for word in words if word.strip()} - own)


def bare_root(packages):
    """A tar of a minimal Debian with what ours need; another need, another tar."""
    suite = re.search(r"^VERSION_CODENAME=(\w+)", pathlib.Path("/etc/os-release").read_text("utf-8"), re.MULTILINE)[1]
    include = ",".join([*BUILD_NEEDS.split(), *needed_of_others(packages)])
    mirror = run("apt-get", "indextargets", "--format", "$(REPO_URI)", "Created-By: Packages", "Origin: Debian",
                 f"Codename: {suite}").stdout.split()[0]
    root = PACKAGES / f"root-{hashlib.sha256(f'{suite} {include}'.encode()).hexdigest()[:12]}.tar"
    if not root.exists():
        say(f"making a bare {suite} from {mirror}")
        part = root.with_suffix(".part.tar")
        run("mmdebstrap", "--quiet", "--variant=minbase", f"--include={include}", suite, part, mirror, timeout=480)
        part.rename(root)
    return root


class Machine:
    """The root, and how things are run in it."""

    def __init__(self, path):
        self.path = path

    def inside(self, *words, user=None, groups=(), **options):
        as_user = [*UNPRIVILEGED, f"--reuid={user}", f"--regid={user}",
                   f"--groups={','.join(groups)}" if groups else "--clear-groups"] if user else []
        environment = {"PATH": SEARCH_PATH, "LC_ALL": "C.UTF-8", "HOME": "/tmp",
                       "DEBIAN_FRONTEND": "noninteractive", "KALIX_RUN_DIR": "/run/kalix"}
        return run("chroot", self.path, *as_user, *words, env=environment | options.pop("env", {}), **options)

    def client(self, *words, **options):
        return self.inside(*words, user=MEMBER, groups=["kalix"], **options)

    def mount(self):
        for kind, place in [("proc", "proc"), ("tmpfs", "run"), ("tmpfs", "dev/shm"), ("tmpfs", "tmp")]:
            (self.path / place).mkdir(exist_ok=True)
            run("mount", "-t", kind, "none", self.path / place)
        for place in ("tmp", "dev/shm"):
            (self.path / place).chmod(0o1777)
        # Read-only, so that no mistake of this script reaches them.
        for source, place in [(PACKAGES, "packages"), (SOURCE, "source")]:
            (self.path / place).mkdir()
            run("mount", "--bind", "-o", "ro", source, self.path / place)

    def files(self):
        found = run("find", self.path, "-path", self.path / "source", "-prune", "-o", "-path", self.path / "packages",
                    "-prune", "-o", "-print").stdout.splitlines()
        names = {name.removeprefix(str(self.path)) for name in found}
        return {name for name in names if not name.startswith(SETTLED)}

    def user(self, name):
        for line in (self.path / "etc/passwd").read_text("utf-8").splitlines():
            if line.startswith(name + ":"):
                return pwd.struct_passwd(line.split(":"))
        raise KeyError(name)


class Unit:
    """A unit file's settings, for a machine whose run and state directories are the usual ones."""

    def __init__(self, machine, name):
        text = (machine.path / "usr/lib/systemd/system" / name).read_text("utf-8")
        text = text.replace("%t", "/run").replace("%S", "/var/lib")
        self.settings = dict(re.findall(r"^(\w+)=(.*)$", text, re.MULTILINE))

    def __getitem__(self, name):
        return self.settings[name]


class Server:
    """The service manager's part of kalix.service and kalix.socket."""

    def __init__(self, machine):
        self.machine = machine
        self.service, self.place = Unit(machine, "kalix.service"), Unit(machine, "kalix.socket")
        user = machine.user(self.service["User"])
        self.owner = int(user.pw_uid), int(user.pw_gid)
        for base, kind in [("run", "Runtime"), ("var/lib", "State")]:
            directory = machine.path / base / self.service[f"{kind}Directory"]
            directory.mkdir(exist_ok=True)
            os.chown(directory, *self.owner)
            directory.chmod(int(self.service[f"{kind}DirectoryMode"], 8))
        self.socket = self.bind(self.place["ListenStream"], socket.SOCK_STREAM, int(self.place["SocketMode"], 8))
        self.socket.listen(128)
        self.notices = self.bind("/run/notify", socket.SOCK_DGRAM, 0o600)
        self.log = machine.path / "run/kalix/log"
        self.log.unlink(missing_ok=True)
        self.process = None

    def bind(self, name, kind, mode):
        path = self.machine.path / name[1:]
        made = socket.socket(socket.AF_UNIX, kind)
        made.bind(str(path))
        os.chown(path, *self.owner)
        path.chmod(mode)
        return made

    def start(self):
        """Returns once the server has said that it serves."""
        settings = dict(word.split("=", 1) for word in self.service["Environment"].split())
        # The one that executes the server is the one that is meant by the ids.
        command = 'exec 3<&"$1"; shift; LISTEN_PID=$$ WATCHDOG_PID=$$ exec "$@"'
        sandbox = [*UNPRIVILEGED, f"--reuid={self.service['User']}", f"--regid={self.service['Group']}",
                   "--clear-groups"]
        environment = settings | {"LISTEN_FDS": "1", "NOTIFY_SOCKET": "/run/notify", "WATCHDOG_USEC": "2000000",
                                  "KALIX_LOG": "/run/kalix/log", "PATH": SEARCH_PATH}
        number = self.socket.fileno()
        self.process = subprocess.Popen(  # pylint: disable=consider-using-with
            ["chroot", self.machine.path, "sh", "-c", command, "sh", str(number), *sandbox,
             *self.service["ExecStart"].split()], env=environment, pass_fds=[number], umask=0o077)
        self.wait_for("READY=1")

    def wait_for(self, notice):
        self.notices.settimeout(10)
        while notice not in self.notices.recv(4096).decode().splitlines():
            pass

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(10)

    def close(self):
        """Ends what is left; returns the log."""
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        for held in (self.socket, self.notices):
            name = held.getsockname()
            held.close()
            pathlib.Path(name).unlink(missing_ok=True)
        return self.log.read_text("utf-8") if self.log.exists() else ""


class Packages(unittest.TestCase):
    """One life of the packages; the steps run in their order."""

    @classmethod
    def setUpClass(cls):
        cls.packages = sorted(PACKAGES.glob("*.deb"))
        for stale in PACKAGES.glob("machine-*"):  # of a run that was killed; its mounts ended with it
            shutil.rmtree(stale)
        cls.folder = tempfile.TemporaryDirectory(prefix="machine-", dir=PACKAGES)
        cls.machine = Machine(pathlib.Path(cls.folder.name))
        tar = bare_root(cls.packages)
        say(f"unpacking {tar.name}")
        run("tar", "-C", cls.machine.path, "-xf", tar)
        cls.machine.mount()
        for user in (MEMBER, STRANGER):
            cls.machine.inside("useradd", "--no-create-home", user)
        cls.before = cls.machine.files()

    @classmethod
    def tearDownClass(cls):
        for place in ("proc", "run", "dev/shm", "tmp", "packages", "source"):
            run("umount", "--lazy", cls.machine.path / place)  # also where something that failed still runs
        cls.folder.cleanup()

    def setUp(self):
        say(self._testMethodName[len("test_n_"):].replace("_", " "))

    @contextlib.contextmanager
    def serving(self):
        server = Server(self.machine)
        try:
            server.start()
            yield server
        finally:
            log = server.close()
            if sys.exc_info()[0]:
                sys.stderr.write(log)

    def screen(self, *options):
        self.machine.client("kalixctl", "screenshot", *options, "/tmp/screen.png")
        return Picture((self.machine.path / "tmp/screen.png").read_bytes())

    def test_1_install(self):
        self.machine.inside("dpkg", "--install", *[f"/packages/{package.name}" for package in self.packages])
        user = self.machine.user("kalix")
        self.assertNotEqual(user.pw_uid, "0")
        facts = (self.machine.path / "run/kalix").stat()
        self.assertEqual((facts.st_mode & 0o7777, facts.st_uid, facts.st_gid),
                         (0o750, int(user.pw_uid), int(user.pw_gid)))
        self.machine.inside("dpkg", "--verify")

    def test_2_clients_of_the_group_draw(self):
        with self.serving():
            self.machine.client("kalix-demo", "triangle", "--output", "/tmp/triangle.png")
            triangle = Picture((self.machine.path / "tmp/triangle.png").read_bytes())
            self.assertGreater(len({triangle.pixel(x, 300) for x in range(0, 960, 16)}), 8)
            self.machine.client("kalix-demo", "mesh", "--frames", "3")
            screen = self.screen()
            self.assertGreater(len({screen.pixel(x, y) for x in range(0, 1024, 64) for y in range(0, 768, 64)}), 20)

    def test_3_examples_draw(self):
        examples = "/usr/share/doc/kalix/examples"
        self.machine.inside("sh", "-c", f"cc -std=c11 {examples}/triangle.c -o /tmp/triangle "
                                        "$(pkg-config --cflags --libs libkalix)")
        self.machine.inside("cmake", "-G", "Ninja", "-S", examples, "-B", "/tmp/examples")
        self.machine.inside("cmake", "--build", "/tmp/examples")
        scripts = sorted((self.machine.path / examples[1:]).glob("*.py"))
        programs = [["/tmp/triangle"], ["/tmp/examples/triangle_cpp"],
                    *[["python3", f"{examples}/{script.name}"] for script in scripts]]
        for program in programs:
            with self.subTest(program), self.serving():
                self.machine.client(*program)
                expect_triangle(self, self.screen())

    def test_4_strangers_are_refused(self):
        with self.serving():
            self.machine.client("kalixctl", "ping")
            refused = self.machine.inside("kalixctl", "ping", user=STRANGER, check=False)
            self.assertEqual(refused.returncode, 1)
            self.assertIn("permission denied; its group is kalix", refused.stderr)
            refused = self.machine.inside("kalixctl", "stats", user=STRANGER, check=False)
            self.assertEqual(refused.returncode, 1)
            self.assertIn("/run/kalix/status (its group is kalix): Permission denied", refused.stderr)

    def test_5_the_server_restarts_under_its_clients(self):
        with self.serving() as server:
            self.machine.client("kalix-demo", "mesh", "--frames", "3")
            before = self.screen().rows
            self.assertEqual(server.stop(), 0)
            ended = self.machine.client("kalixctl", "screenshot", "/tmp/screen.png", check=False)
            self.assertIn("the server has ended", ended.stderr)
            self.assertEqual(self.screen("--last").rows, before)
            early = subprocess.Popen(["chroot", "--userspec", f"{MEMBER}:kalix", self.machine.path, "kalixctl", "ping"],
                                     env={"KALIX_RUN_DIR": "/run/kalix", "PATH": SEARCH_PATH},
                                     stdout=subprocess.DEVNULL)
            time.sleep(0.3)
            self.assertIsNone(early.poll(), "a client that came while no server ran did not wait")
            server.start()
            self.assertEqual(early.wait(10), 0)
            server.wait_for("WATCHDOG=1")

    def frames_rise_beyond(self, number):
        """Whether the screen goes on to be drawn anew."""
        end = time.monotonic() + 60
        while time.monotonic() < end:
            frame = self.machine.client("kalixctl", "--json", "frame", check=False)
            if frame.returncode == 0 and json.loads(frame.stdout)["frame"] > number:
                return True
            time.sleep(0.1)
        return False

    def test_5_a_scene_goes_on_with_the_next_server(self):
        with self.serving() as server:
            scene = subprocess.Popen(["chroot", "--userspec", f"{MEMBER}:kalix", self.machine.path, "kalix-demo",
                                      "mesh", "--frames", "0"], stderr=subprocess.DEVNULL,
                                     env={"KALIX_RUN_DIR": "/run/kalix", "PATH": SEARCH_PATH})
            try:
                self.assertTrue(self.frames_rise_beyond(3))
                server.process.kill()
                server.process.wait()
                server.start()
                self.assertTrue(self.frames_rise_beyond(3))
            finally:
                scene.terminate()
                scene.wait(10)

    def test_6_the_server_is_built_without_the_rest(self):
        # Neither optimized nor to be debugged: whether it builds is the question.
        self.machine.inside("cmake", "-G", "Ninja", "-S", "/source", "-B", "/tmp/bare", "-DCMAKE_BUILD_TYPE=Debug",
                            "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DKALIX_BUILD_TOOLS=OFF", "-DBUILD_TESTING=OFF")
        self.machine.inside("cmake", "--build", "/tmp/bare", timeout=480)
        self.machine.inside("cmake", "--install", "/tmp/bare", "--prefix", "/tmp/prefix", "--component", "server")
        told = self.machine.inside("/tmp/prefix/bin/kalix", "testmode", env={"KALIX_RUN_DIR": "/tmp/run"})
        self.assertEqual(told.stdout, "0\n")

    def test_7_nothing_is_left(self):
        names = [field(package, "Package") for package in self.packages]
        self.machine.inside("dpkg", "--remove", *names)
        self.assertTrue((self.machine.path / "var/lib/kalix").exists(), "what the server stored went too early")
        self.machine.inside("dpkg", "--purge", *names)
        left = {name for name in self.machine.files() - self.before
                if not re.fullmatch(r"/etc/[a-z]+-|/etc/\.pwd\.lock|/run/(adduser|lock|notify).*", name)}
        self.assertEqual(left, set())
        self.assertEqual(self.machine.user("kalix").pw_shell, "/usr/sbin/nologin")


if __name__ == "__main__":
    if os.environ.get("KALIX_OWN_MOUNTS") != "1":
        os.execvpe("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", sys.executable, *sys.argv],
                   os.environ | {"KALIX_OWN_MOUNTS": "1"})
    unittest.main(argv=sys.argv[:1], failfast=True)
