"""Packs a plug-in's manifest as `<symbolic name>/manifest.json` into a ZIP archive.

usage: pack_bundle_manifest.py <manifest.json> <symbolic name> <archive.zip>

The archive depends on nothing but its input: times and attributes are fixed.
"""

import json
import sys
import zipfile

FIXED_TIME = (1980, 1, 1, 0, 0, 0)


def main() -> None:
    manifest_path, symbolic_name, archive_path = sys.argv[1:]
    with open(manifest_path, "rb") as manifest_file:
        text = manifest_file.read()
    try:
        named = json.loads(text).get("bundle.symbolic_name")
    except (ValueError, AttributeError) as error:
        sys.exit(f"{manifest_path}: not a JSON object: {error}")
    if named != symbolic_name:
        sys.exit(f"{manifest_path}: 'bundle.symbolic_name' is {named!r}, the build says {symbolic_name!r}")
    with zipfile.ZipFile(archive_path, "w") as archive:
        archive.writestr(zipfile.ZipInfo(f"{symbolic_name}/", FIXED_TIME), b"")
        entry = zipfile.ZipInfo(f"{symbolic_name}/manifest.json", FIXED_TIME)
        entry.compress_type = zipfile.ZIP_DEFLATED
        entry.create_system = 3
        archive.writestr(entry, text, compresslevel=9)


main()
