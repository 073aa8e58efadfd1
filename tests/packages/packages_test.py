"""The Debian packages, unpacked into an empty root: what they hold builds and runs from there."""
import gzip
import importlib.util
import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
WORK = Path(os.environ["WORK_DIR"])
ROOT = WORK / "root"
DOC = ROOT / "usr/share/doc"


def run(*command, **variables):
    result = subprocess.run([str(word) for word in command], cwd=WORK, text=True,
                            env={**os.environ, **{k: str(v) for k, v in variables.items()}},
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if result.returncode:
        raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}")
    return result.stdout


def make_packages(folder):
    run(os.environ["CPACK"], "--config", os.environ["CONFIG"], "-B", WORK / folder)
    return sorted((WORK / folder).glob("*.deb"))


def field(package, name):
    return run("dpkg-deb", "-f", package, name).strip()


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.rmtree(WORK, ignore_errors=True)
        WORK.mkdir(parents=True)
        cls.packages = make_packages("packages")
        for package in cls.packages:
            run("dpkg-deb", "-x", package, ROOT)
        (cls.libraries,) = (path.parent for path in ROOT.glob("usr/lib/*/libvekfind.so.2"))

    def test_two_runs_make_the_same_bytes(self):
        again = make_packages("again")
        self.assertEqual([p.name for p in again], [p.name for p in self.packages])
        for package, other in zip(self.packages, again):
            self.assertEqual(package.read_bytes(), other.read_bytes(), package.name)

    def test_versions_and_libraries_are_those_depended_on(self):
        provided = {"libstdc++.so.6": "libstdc++6", "libgcc_s.so.1": "libgcc-s1",
                    "libvekfind.so.2": "libvekfind2", "libmpi.so.40": "libopenmpi3"}
        for package in self.packages:
            name = field(package, "Package")
            with gzip.open(DOC / name / "changelog.Debian.gz", "rt") as changelog:
                self.assertEqual(changelog.readline().split()[1], f"({os.environ['VERSION']})")
            own = WORK / name
            run("dpkg-deb", "-x", package, own)
            files = [*own.glob("usr/bin/*"), *own.glob("usr/lib/*/lib*.so.*.*.*")]
            needed = set(re.findall(r"NEEDED +(\S+)", "".join(run("objdump", "-p", file)
                                                              for file in files)))
            packages = {"libc6" if re.match(r"(libc|libm|ld-linux\S*)\.", library)
                        else provided[library] for library in needed}
            if files:
                self.assertEqual(set(re.findall(r"(\S+) \(", field(package, "Depends"))), packages)

    def test_examples_build_by_find_package_and_by_pkg_config(self):
        examples = DOC / "libvekfind-dev/examples"
        shutil.copytree(TESTS / "install/consumer", WORK / "consumer")
        for name in ("example.c", "search.cpp"):
            shutil.copy(examples / name, WORK / "consumer")
        run(os.environ["CMAKE"], "-S", "consumer", "-B", "build", "-G", os.environ["GENERATOR"],
            f"-DCMAKE_PREFIX_PATH={ROOT}/usr")
        run(os.environ["CMAKE"], "--build", "build")
        self.assertEqual(run("build/example"), "id 8, similarity 0.953\n")
        self.assertIn("id 8, similarity 0.953; id 9, similarity 0.500\n", run("build/search"))
        flags = run("pkg-config", "--cflags", "--libs", "vekfind",
                    PKG_CONFIG_LIBDIR=self.libraries / "pkgconfig").split()
        run(os.environ["CC"], "-std=c99", examples / "example.c", "-o", "example", *flags)
        self.assertEqual(run("./example", LD_LIBRARY_PATH=self.libraries), run("build/example"))

    def test_programs_run_and_have_a_man_page(self):
        programs = {path.name: path for path in ROOT.glob("usr/bin/*")}
        for name, program in programs.items():
            text = run(program, "--help", LD_LIBRARY_PATH=self.libraries)
            with gzip.open(ROOT / f"usr/share/man/man1/{name}.1.gz", "rt") as page:
                self.assertIn(text.split("\n")[0], page.read())
        graph = DOC / "vekfind-tools/examples/add.graph"
        self.assertIn("all operators can be made", run(programs["vekgraph"], "check", graph))
        if "vekfind" in programs:
            (WORK / "rows.csv").write_text("0,0\n3,4\n")
            (WORK / "queries.csv").write_text("3,3\n")
            for words in ("build rows.csv -o rows.vek --scale 1 --bias -4",
                          "search rows.vek queries.csv -k 1 -o found.csv"):
                run(programs["vekfind"], *words.split(), LD_LIBRARY_PATH=self.libraries)
            self.assertIn("0,1,1,0.95257", (WORK / "found.csv").read_text())

    @unittest.skipUnless(importlib.util.find_spec("numpy"), "NumPy is missing")
    def test_python_documentation_and_example(self):
        paths = {"PYTHONPATH": ROOT / "usr/lib/python3/dist-packages",
                 "LD_LIBRARY_PATH": self.libraries}
        run("/usr/bin/python3", TESTS / "python/documentation_test.py", **paths)
        output = run("/usr/bin/python3", DOC / "python3-vekfind/examples/search.py", **paths)
        self.assertIn("id 8, similarity 0.953; id 9, similarity 0.500\n", output)

    @unittest.skipUnless(shutil.which("lintian"), "lintian is missing")
    def test_lintian(self):
        # There is no list of requests that a first version could close an entry of.
        run("lintian", "--allow-root", "--fail-on", "error,warning",
            "--suppress-tags", "initial-upload-closes-no-bugs", *self.packages)


if __name__ == "__main__":
    unittest.main()
