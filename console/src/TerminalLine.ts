import type { TextStyle } from "./TextStyle";

/** A stretch of a line in one style; undefined is plain. */
export interface StyledRun {
    readonly text: string;
    readonly style: TextStyle | undefined;
}

/** What keeps with the character before it: combining marks, joiners, and low surrogates. */
const continuation = /[\p{M}\u200d\udc00-\udfff]/u;

/** How far a cut moves back so that it divides no character. */
const maxCutback = 16;

/** The line that is being written, as a terminal has it: with a place to write at, that can go back. */
export class TerminalLine {
    #text = "";
    /** Where the next text goes, in UTF-16 units. */
    #column = 0;
    /** The style of each UTF-16 unit; absent while all is plain. */
    #styles: (TextStyle | undefined)[] | undefined;

    get text(): string {
        return this.#text;
    }

    get column(): number {
        return this.#column;
    }

    /** The text with its styles; undefined if all of it is plain. */
    get runs(): readonly StyledRun[] | undefined {
        if (!this.#styles) {
            return undefined;
        }
        const runs: StyledRun[] = [];
        let start = 0;
        for (let end = 1; end <= this.#text.length; end++) {
            if (end === this.#text.length || this.#styles[end] !== this.#styles[start]) {
                runs.push({ text: this.#text.slice(start, end), style: this.#styles[start] });
                start = end;
            }
        }
        return runs;
    }

    /** Writes over what is there. */
    write(text: string, style: TextStyle | undefined): void {
        const end = this.#column + text.length;
        if (style || this.#styles) {
            this.#styles ??= new Array<TextStyle | undefined>(this.#text.length).fill(undefined);
            for (let place = this.#column; place < end; place++) {
                this.#styles[place] = style;
            }
        }
        if (this.#column === this.#text.length) {
            this.#text += text;
        } else {
            // Of a character that is half overwritten nothing is left.
            const isHalf = isLowSurrogate(this.#text, end);
            this.#text = this.#text.slice(0, this.#column) + text + this.#text.slice(isHalf ? end + 1 : end);
            if (isHalf) {
                this.#styles?.splice(end, 1);
            }
        }
        this.#column = end;
    }

    /** Back to the start of the line. */
    returnCarriage(): void {
        this.#column = 0;
    }

    /** Back by one character. */
    goBack(): void {
        this.#column = Math.max(0, this.#column - (isLowSurrogate(this.#text, this.#column - 1) ? 2 : 1));
    }

    /** Erases, without moving: "0" to the end of the line, "1" up to here, "2" all of it. */
    erase(part: string): void {
        if (part === "" || part === "0") {
            this.#text = this.#text.slice(0, this.#column);
            this.#styles?.splice(this.#column);
        } else if (part === "1" || part === "2") {
            const column = this.#column;
            const tail = part === "1" ? this.#text.slice(column) : "";
            this.#text = " ".repeat(column) + tail;
            this.#styles?.splice(this.#text.length);
            this.#styles?.fill(undefined, 0, column);
        }
    }
}

/** The last place up to `limit` at which the text can be cut without dividing a character. */
export function placeToCut(text: string, limit: number): number {
    for (let cut = limit; cut > 0 && cut > limit - maxCutback; cut--) {
        if (
            !isLowSurrogate(text, cut) &&
            !continuation.test(String.fromCodePoint(text.codePointAt(cut) ?? 0)) &&
            text[cut - 1] !== "\u200d"
        ) {
            return cut;
        }
    }
    return limit > 0 && isLowSurrogate(text, limit) ? limit - 1 : limit;
}

function isLowSurrogate(text: string, place: number): boolean {
    const unit = text.charCodeAt(place);
    return unit >= 0xdc00 && unit <= 0xdfff;
}
