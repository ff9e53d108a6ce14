const units = ["B", "kB", "MB", "GB", "TB"];

/** How large a value is, for a narrow column: the extents of an array, of anything else its memory. */
export function sizeText({
    shape,
    bytes,
}: {
    readonly shape: readonly number[];
    readonly bytes: number;
}): string {
    if (shape.length > 0) {
        return shape.map(String).join("×");
    }
    let value = bytes;
    let unit = 0;
    while (value >= 999.5 && unit < units.length - 1) {
        value /= 1000;
        unit += 1;
    }
    return `${value.toFixed(unit > 0 && value < 9.95 ? 1 : 0)} ${units[unit] ?? ""}`;
}
