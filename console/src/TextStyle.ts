/** A colour: one of the terminal's 16 by its number, or any other as `#rrggbb`. */
export type TextColor = number | string;

/** How a terminal would show a piece of text. */
export interface TextStyle {
    readonly color?: TextColor | undefined;
    readonly background?: TextColor | undefined;
    readonly isBold?: boolean;
    readonly isDim?: boolean;
    readonly isItalic?: boolean;
    readonly isUnderlined?: boolean;
    readonly isStruck?: boolean;
    readonly isInverse?: boolean;
}

const switches: Readonly<Record<number, TextStyle>> = {
    1: { isBold: true },
    2: { isDim: true },
    3: { isItalic: true },
    4: { isUnderlined: true },
    7: { isInverse: true },
    9: { isStruck: true },
    22: { isBold: false, isDim: false },
    23: { isItalic: false },
    24: { isUnderlined: false },
    27: { isInverse: false },
    29: { isStruck: false },
    39: { color: undefined },
    49: { background: undefined },
};

/**
 * The style after an escape sequence that selects one; undefined is that of plain text. What is not known of
 * it is passed over.
 *
 * @param parameters what stands between `ESC [` and `m`, e.g. `1;38;5;208`
 */
export function selectStyle(before: TextStyle | undefined, parameters: string): TextStyle | undefined {
    const codes = parameters.split(/[;:]/).map(Number);
    let style = before;
    for (let code = codes.shift(); code !== undefined; code = codes.shift()) {
        if (code === 0) {
            style = undefined;
        } else if (code === 38 || code === 48) {
            const color = takeColor(codes);
            style = { ...style, ...(code === 38 ? { color } : { background: color }) };
        } else if (code >= 30 && code <= 37) {
            style = { ...style, color: code - 30 };
        } else if (code >= 40 && code <= 47) {
            style = { ...style, background: code - 40 };
        } else if (code >= 90 && code <= 97) {
            style = { ...style, color: code - 90 + 8 };
        } else if (code >= 100 && code <= 107) {
            style = { ...style, background: code - 100 + 8 };
        } else if (switches[code]) {
            style = { ...style, ...switches[code] };
        }
    }
    return style;
}

/** Takes `5;n` or `2;r;g;b` from the front. */
function takeColor(codes: number[]): TextColor | undefined {
    const kind = codes.shift();
    if (kind === 5) {
        return paletteColor(codes.shift() ?? NaN);
    }
    return kind === 2 ? rgb(codes.splice(0, 3)) : undefined;
}

/** Colours beyond the first 16 are a cube of 6 by 6 by 6, and 24 greys. */
function paletteColor(index: number): TextColor | undefined {
    if (!(index >= 0 && index < 256)) {
        return undefined;
    }
    if (index < 16) {
        return index;
    }
    if (index >= 232) {
        const grey = 8 + 10 * (index - 232);
        return rgb([grey, grey, grey]);
    }
    const level = (step: number) => (step === 0 ? 0 : 55 + 40 * step);
    const place = index - 16;
    return rgb([level(Math.floor(place / 36)), level(Math.floor(place / 6) % 6), level(place % 6)]);
}

function rgb(parts: readonly number[]): TextColor | undefined {
    return parts.length === 3 && parts.every((part) => part >= 0 && part < 256)
        ? `#${parts.map((part) => Math.floor(part).toString(16).padStart(2, "0")).join("")}`
        : undefined;
}

/** Gives an element the style, by classes and, for colours of no name, by its style properties. */
export function applyStyle(element: HTMLElement, style: TextStyle): void {
    const names = {
        bold: style.isBold,
        dim: style.isDim,
        italic: style.isItalic,
        underlined: style.isUnderlined,
        struck: style.isStruck,
        inverse: style.isInverse,
    };
    element.classList.add(
        ...Object.entries(names)
            .filter(([, isOn]) => isOn === true)
            .map(([name]) => name),
    );
    const [front, back] =
        style.isInverse === true ? [style.background, style.color] : [style.color, style.background];
    if (typeof front === "number") {
        element.classList.add(`front-${String(front)}`);
    } else if (front !== undefined) {
        element.style.color = front;
    }
    if (back !== undefined) {
        element.classList.add("on-color");
    }
    if (typeof back === "number") {
        element.classList.add(`back-${String(back)}`);
    } else if (back !== undefined) {
        element.style.backgroundColor = back;
    }
}
