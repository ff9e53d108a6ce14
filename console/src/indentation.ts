/** The white space with which a new line starts, behind `before`: that of the line, and more after a colon. */
export function indentationAfter(before: string): string {
    const line = before.slice(before.lastIndexOf("\n") + 1);
    const indentation = /^[ \t]*/.exec(line)?.[0] ?? "";
    return line.trimEnd().endsWith(":") ? `${indentation}    ` : indentation;
}
