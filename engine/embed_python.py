"""Writes the engine's Python side into a C++ source: `embed_python.py OUTPUT BOOTSTRAP ROOT FILE...`."""

import pathlib
import sys


def literal(text):
    # In pieces: a compiler need not take more than 64 KiB in one literal.
    pieces = [text[i : i + 8000] for i in range(0, len(text), 8000)] or [""]
    return "\n".join(f'R"__py__({piece})__py__"' for piece in pieces)


def main():
    output, bootstrap, root = map(pathlib.Path, sys.argv[1:4])
    entries = []
    for path in map(pathlib.Path, sys.argv[4:]):
        parts = list(path.relative_to(root).with_suffix("").parts)
        is_package = parts[-1] == "__init__"
        if is_package:
            parts.pop()
        name = ".".join(parts)
        entries.append(f'    {{"{name}", {str(is_package).lower()}, {literal(path.read_text("utf-8"))}}},')
    output.write_text(
        '#include "engine/detail/EmbeddedSources.hpp"\n\n'
        "namespace yvm::engine {\n\n"
        f"const char* const bootstrapSource =\n{literal(bootstrap.read_text('utf-8'))};\n\n"
        "const std::vector<EmbeddedSource>& embeddedSources() {\n"
        "  static const std::vector<EmbeddedSource> sources{\n" + "\n".join(entries) + "\n  };\n"
        "  return sources;\n}\n\n}  // namespace yvm::engine\n",
        "utf-8",
    )


main()
