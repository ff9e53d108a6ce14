/** Elements within one another, of which no table or text has that many. */
const maxDepth = 200;

/** Elements that end where the next one begins, or at once. */
const withoutEnd = new Set(
    (
        "area base br caption col colgroup dd dt embed hr img input li link meta option p param rp rt source tbody " +
        "td tfoot th thead tr track wbr"
    ).split(" "),
);

/**
 * Whether elements of some HTML are left open so often that a browser would be busy with it for minutes, however
 * short it is: for each one that begins it looks through all that are open.
 */
export function isNestedTooDeep(html: string): boolean {
    const open = new Map<string, number>();
    const count = (name: string) => open.get(name) ?? 0;
    let depth = 0;
    for (const [, slash, tag, rest] of html.matchAll(/<(\/?)([a-z][a-z0-9-]*)([^<>]*)/gi)) {
        const name = tag?.toLowerCase() ?? "";
        // In HTML itself a slash at its end does not end an element.
        const endsItself = rest?.endsWith("/") === true && count("svg") + count("math") > 0;
        if (withoutEnd.has(name) || endsItself) {
            continue;
        }
        if (slash === "") {
            open.set(name, count(name) + 1);
            depth += 1;
        } else if (count(name) > 0) {
            open.set(name, count(name) - 1);
            depth -= 1;
        }
        if (depth > maxDepth) {
            return true;
        }
    }
    return false;
}
