"""The amd64 Debian packages as an installer gets them: unpacked into a throw-away root, the
control data, the systemd unit (checked by systemd-analyze), the man page against --help, and
the installed binaries run. Uses TESSERA_DEB (the tessera .deb) or build-deb/ beside the sources;
skipped when dpkg-deb is missing or scripts/build-deb.sh has not built the package."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

from harness import SOURCE, Tessera

DEMO = os.path.join(SOURCE, "tests", "data", "demo")
with open(os.path.join(SOURCE, "CMakeLists.txt")) as f:
    VERSION = re.search(r"project\(tessera VERSION ([0-9.]+)", f.read()).group(1)
DEB = os.environ.get("TESSERA_DEB") or os.path.join(SOURCE, "build-deb", "tessera_%s_amd64.deb" % VERSION)
SIM_DEB = os.path.join(os.path.dirname(DEB), "tessera-readersim_%s_amd64.deb" % VERSION)


def why_not():
    if shutil.which("dpkg-deb") is None:
        return "dpkg-deb is not installed"
    if not os.path.exists(DEB):
        return "no package at %s (bash scripts/build-deb.sh amd64 builds it)" % DEB
    return None


def run(args, **kwargs):
    return subprocess.run(args, capture_output=True, text=True, timeout=60, **kwargs)


@unittest.skipIf(why_not(), why_not())
class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls._tmp = tempfile.TemporaryDirectory(prefix="tessera-deb-")
        cls.root = cls._tmp.name
        for deb in (DEB, SIM_DEB):
            subprocess.run(["dpkg-deb", "-x", deb, cls.root], check=True)
        cls.tessera = os.path.join(cls.root, "usr/bin/tessera")
        cls.help = run([cls.tessera, "--help"])

    @classmethod
    def tearDownClass(cls):
        cls._tmp.cleanup()

    def installed(self, path):
        return os.path.join(self.root, path.lstrip("/"))

    def test_control_data_names_the_version_and_the_libraries(self):
        for deb, package, needs in ((DEB, "tessera", ("libc6", "libcurl4", "libstdc++6")),
                                    (SIM_DEB, "tessera-readersim", ("libc6", "libstdc++6"))):
            fields = run(["dpkg-deb", "-f", deb, "Package", "Version", "Architecture", "Depends"]).stdout
            self.assertIn("Package: %s\n" % package, fields)
            self.assertIn("Version: %s\n" % VERSION, fields)
            self.assertIn("Architecture: amd64\n", fields)
            depends = re.search(r"^Depends: (.*)$", fields, re.M).group(1)
            self.assertEqual({d.split()[0] for d in depends.split(", ")} & set(needs), set(needs), depends)

    def test_package_installs_the_files_an_appliance_needs(self):
        for path, mode in (("/usr/bin/tessera", 0o755), ("/usr/bin/tessera-readersim", 0o755),
                           ("/lib/systemd/system/tessera.service", 0o644),
                           ("/usr/share/man/man1/tessera.1.gz", 0o644),
                           ("/usr/share/man/man1/tessera-readersim.1.gz", 0o644),
                           ("/usr/share/doc/tessera/copyright", 0o644),
                           ("/usr/share/doc/tessera/changelog.gz", 0o644),
                           ("/etc/default/tessera", 0o644)):
            self.assertTrue(os.path.isfile(self.installed(path)), path)
            self.assertEqual(os.stat(self.installed(path)).st_mode & 0o777, mode, path)
        # The spool's folder is made, the spool itself left off.
        self.assertTrue(os.path.isdir(self.installed("/var/lib/tessera/spool")))
        with open(self.installed("/etc/default/tessera")) as f:
            options = [l.strip() for l in f if l.startswith("TESSERA_OPTS=")]
        self.assertEqual(options, ['TESSERA_OPTS=""'])

    def test_unit_starts_the_service_with_the_appliance_defaults(self):
        with open(self.installed("/lib/systemd/system/tessera.service")) as f:
            lines = {l.strip() for l in f if l.strip() and not l.startswith("#")}
        for line in ("ExecStart=/usr/bin/tessera $TESSERA_OPTS",
                     "EnvironmentFile=-/etc/default/tessera", "Restart=on-failure", "KillSignal=SIGTERM",
                     "SyslogIdentifier=tessera", "WantedBy=multi-user.target"):
            self.assertIn(line, lines)

    def test_unit_passes_systemd_analyze_verify(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("systemd-analyze is not installed; the unit file was not verified")
        # The unit's After= and WantedBy= name the host's targets; the throw-away root needs them.
        units = self.installed("/lib/systemd/system")
        for name in os.listdir("/lib/systemd/system"):
            if name.endswith(".target") and not os.path.exists(os.path.join(units, name)):
                shutil.copy("/lib/systemd/system/" + name, units)
        # Documentation=man:tessera(1) must resolve to the packaged man page.
        env = dict(os.environ, MANPATH=self.installed("/usr/share/man"))
        result = run(["systemd-analyze", "verify", "--root=" + self.root,
                      "/lib/systemd/system/tessera.service"], env=env)
        self.assertEqual((result.returncode, result.stdout + result.stderr), (0, ""))

    def test_installed_binary_prints_its_help_and_the_man_page_has_every_option(self):
        self.assertEqual(self.help.returncode, 0, self.help.stderr)
        self.assertTrue(self.help.stdout.startswith("Usage: %s [OPTION]..." % self.tessera))
        options = set(re.findall(r"^\s+(?:-h, )?(--[a-z-]+)", self.help.stdout, re.M))
        self.assertIn("--check-config", options)
        man = run(["gzip", "-dc", self.installed("/usr/share/man/man1/tessera.1.gz")]).stdout
        section = man.split(".SH OPTIONS", 1)[1].split(".SH ", 1)[0].replace("\\-", "-")
        man_options = set(re.findall(r"^\.B[IR]? (?:-h \", \" )?(--[a-z-]+)", section, re.M))
        self.assertEqual(man_options, options)

    def test_check_config_reads_the_demo_configuration_and_refuses_an_empty_root(self):
        result = run([self.tessera, "--check-config", "--root", DEMO])
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertIn(os.path.join(DEMO, "readerconfig/AdvReaderConfig.xml"), result.stdout)
        self.assertIn("configuration usable", result.stdout)
        with tempfile.TemporaryDirectory() as empty:
            self.assertEqual(run([self.tessera, "--check-config", "--root", empty]).returncode, 1)

    def test_installed_service_ends_cleanly_on_sigterm_so_systemd_does_not_restart_it(self):
        service = Tessera()
        service.args[0] = self.tessera
        try:
            service.start()
            self.assertEqual(service.stop(), 0, service.output()[-2000:])
        finally:
            service.close()

    def test_simulator_man_page_is_its_help_text(self):
        sim = self.installed("/usr/bin/tessera-readersim")
        help_text = run([sim, "--help"]).stdout
        man = run(["gzip", "-dc", self.installed("/usr/share/man/man1/tessera-readersim.1.gz")]).stdout
        for line in help_text.splitlines()[:3] + help_text.splitlines()[-3:]:
            self.assertIn(line.replace("\\", "\\e"), man)
