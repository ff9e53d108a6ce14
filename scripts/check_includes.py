"""Checks that includes follow the arrows of the house.

server -> engine -> platform; module -> platform; converters -> platform. Within the platform a
library includes only those that stand above it in platform/CMakeLists.txt. Test folders may also
include what stands in platform/testing.
"""

import re
import subprocess
import sys
from pathlib import Path

root = Path(sys.argv[1])
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)

order = re.findall(
    r"^\s{2}([\w/]+?)\)?$", (root / "platform/CMakeLists.txt").read_text().split("library", 1)[1], re.M
)
if "foundation/json" not in order or "testing" not in order:
    sys.exit("platform/CMakeLists.txt: the list of libraries was not understood")
rank = {name: i for i, name in enumerate(order)}
# Header-only neighbours that are built as part of a listed library.
rank["foundation/yorlabjson"] = rank["foundation/yorlabdata"]


def library_of(path: str) -> str | None:
    """The platform library that a path below platform/ belongs to."""
    return next((n for n in sorted(rank, key=len, reverse=True) if path.startswith(n + "/")), None)


MODULE_ROOTS = ("yvm_javascript/YVMAdapter/include", "yvm_javascript/YVMAdapter")


def owner(include: str, source: Path) -> str | None:
    """The top-level house that an included file belongs to, None for one beside the source."""
    if (source.parent / include).is_file():
        return None
    if library_of(include) and (root / "platform" / include).exists():
        return "platform"
    for base in MODULE_ROOTS:
        if (root / base / include).is_file():
            return "module"
    top = include.split("/", 1)[0]
    return top if (root / include).is_file() else "unknown"


ALLOWED = {
    "platform": {"platform"},
    "module": {"module", "platform"},
    "converters": {"converters", "platform"},
    "engine": {"engine", "platform"},
    "server": {"server", "engine", "platform"},
    "tests": {"server", "engine", "platform", "module", "tests"},
    "bench": {"server", "engine", "platform", "module", "bench"},
    "fuzz": {"server", "platform", "module", "fuzz"},
    "cmake": set(),
}

problems = []
files = subprocess.run(
    ["git", "-C", str(root), "ls-files", "-co", "--exclude-standard", "*.hpp", "*.cpp", "*.h"],
    capture_output=True, text=True, check=True,
).stdout.split()
for name in files:
    source = root / name
    if not source.exists():
        continue
    house = "module" if name.startswith("yvm_javascript/") else name.split("/", 1)[0]
    if house not in ALLOWED:
        problems.append(f"{name}: C++ lives in one of {', '.join(sorted(ALLOWED))}")
        continue
    in_test = "/test/" in name
    for include in INCLUDE.findall(source.read_text()):
        target = owner(include, source)
        if target is None:
            continue
        if target == "unknown":
            problems.append(f"{name}: \"{include}\" is found nowhere in the house")
        elif target not in ALLOWED[house]:
            problems.append(f"{name}: {house} may not include \"{include}\" of {target}")
        elif house == "platform" and target == "platform":
            here, there = library_of(name.removeprefix("platform/")), library_of(include)
            if there == "testing" and in_test:
                continue
            if here and there and rank[there] > rank[here]:
                problems.append(f"{name}: {here} stands below {there} and may not include \"{include}\"")

print("\n".join(problems), end="\n" if problems else "")
sys.exit(1 if problems else 0)
