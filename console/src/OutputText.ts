import { placeToCut, TerminalLine, type StyledRun } from "./TerminalLine";
import { selectStyle, type TextStyle } from "./TextStyle";

type Stream = 0 | 1;

/** A line of text, or a part of a line that is too long. */
export interface Row {
    readonly stream: Stream;
    readonly text: string;
    /** The text in its styles; absent if all of it is plain. */
    readonly runs?: readonly StyledRun[] | undefined;
    /** Whether a line feed ended it. Otherwise the next row of the stream goes on with the line. */
    readonly hasEnd: boolean;
}

interface Chunk {
    readonly stream: Stream;
    readonly text: string;
}

/** What one stream has left unfinished. */
interface StreamState {
    style: TextStyle | undefined;
    /** The beginning of an escape sequence. */
    held: string;
}

export interface OutputLimits {
    /** UTF-16 units that are kept; of more, the oldest go. */
    readonly units: number;
    /** Rows that are kept. */
    readonly rows: number;
    /** Stretches of one style that are kept in all rows. They cost more than their text. */
    readonly runs: number;
    /** UTF-16 units in a row; what is longer goes on in the next. */
    readonly rowUnits: number;
    /** Stretches of one style in a row; with more, it is plain. */
    readonly rowRuns: number;
}

const defaultLimits: OutputLimits = {
    units: 8 * 1024 * 1024,
    rows: 200_000,
    runs: 400_000,
    rowUnits: 1000,
    rowRuns: 200,
};

/** UTF-16 units of a line that are taken in at a time. */
const maxPiece = 4096;

/** An escape sequence that is longer than this is none. */
const maxEscape = 256;

/** How many pieces are taken in from one look at the clock to the next. */
const piecesPerLook = 64;

/* eslint-disable no-control-regex -- of control characters this is all about */

/** What is not simply written. The separators would end a line where this page counts none. */
const special = /[\x00-\x08\x0b-\x1f\x7f-\x9f\u2028\u2029]/g;

const sequences = {
    control: /\x1b\[([0-?]*)[ -/]*([@-~])/y,
    text: /\x1b[\]PX^_][^\x07\x1b]*(?:\x07|\x1b\\)/y,
    other: /\x1b[ -/]*[0-OQ-WYZ\\`-~]/y,
    unfinished: /\x1b(?:\[[0-?]*[ -/]*|[\]PX^_][^\x07\x1b]*\x1b?|[ -/]*)$/y,
};

/* eslint-enable no-control-regex */

/**
 * What was printed, bounded, as a terminal would show it: a carriage return goes back to the start of the
 * line, so that a progress bar stays one line, colours are styles, other control characters can be seen.
 *
 * Text is taken in at once and made rows of by `process`, in slices of time.
 */
export class OutputText {
    #limits: OutputLimits;
    /** Rows that are finished, from `#firstKept` on. */
    #rows: Row[] = [];
    #firstKept = 0;
    #line: { readonly stream: Stream; readonly content: TerminalLine } | undefined;
    readonly #streams: Record<Stream, StreamState> = {
        0: { style: undefined, held: "" },
        1: { style: undefined, held: "" },
    };
    /** Text that is no rows yet, from `#firstPending` on; of that chunk, what lies before `#at` is done with. */
    #pending: Chunk[] = [];
    #firstPending = 0;
    #at = 0;
    /** Where the line at `#at` ends in its chunk; behind it if that is not known. */
    #lineEnd = -1;
    /** What the finished rows hold. */
    #rowUnits = 0;
    #runs = 0;
    #pendingUnits = 0;
    #dropped = 0;
    #droppedRows = 0;

    constructor(limits: Partial<OutputLimits> = {}) {
        this.#limits = { ...defaultLimits, ...limits };
    }

    /** How many UTF-16 units were dropped to keep the bound. */
    get dropped(): number {
        return this.#dropped;
    }

    /** How many UTF-16 units are kept. */
    get length(): number {
        return this.#rowUnits + this.#pendingUnits + (this.#line?.content.text.length ?? 0);
    }

    /** The number of the first row that is kept; rows are counted from the first that was made. */
    get firstRow(): number {
        return this.#droppedRows;
    }

    /** The number behind that of the last row. */
    get endRow(): number {
        return this.#droppedRows + this.#rows.length - this.#firstKept + (this.#line ? 1 : 0);
    }

    /** The row with this number, which is kept. */
    row(number: number): Row {
        const row = this.#rows[this.#firstKept + number - this.#droppedRows];
        if (row) {
            return row;
        }
        if (!this.#line) {
            throw new RangeError(`there is no row ${String(number)}`);
        }
        const { stream, content } = this.#line;
        return { stream, text: content.text, runs: this.#runsOf(content), hasEnd: false };
    }

    /** Takes text in, and drops the oldest of what is beyond the limits. */
    append(stream: Stream, text: string): void {
        if (text === "") {
            return;
        }
        const excess = text.length - this.#limits.units;
        let kept = text;
        if (excess > 0) {
            this.#dropped += excess;
            // By way of bytes: a slice would keep the whole of the text alive.
            kept = new TextDecoder().decode(new TextEncoder().encode(text.slice(excess)));
        }
        this.#pending.push({ stream, text: kept });
        this.#pendingUnits += kept.length;
        this.#trim();
    }

    /**
     * Makes rows of what was taken in.
     *
     * @param deadline on the clock of `performance.now()`; what is not done by then waits for the next call
     * @returns whether all is done
     */
    process(deadline = Infinity): boolean {
        let pieces = 0;
        for (let chunk = this.#nextChunk(); chunk; chunk = this.#nextChunk()) {
            if (++pieces % piecesPerLook === 0 && performance.now() >= deadline) {
                break;
            }
            this.#takePiece(chunk);
        }
        this.#trim();
        return this.#firstPending === this.#pending.length;
    }

    /** Keeps no more than so many UTF-16 units from now on. */
    limitTo(units: number): void {
        this.#limits = { ...this.#limits, units };
        this.#trim();
    }

    /** All rows that are kept as text without styles, in parts. */
    *parts(): Generator<string, void> {
        const rowsPerPart = 4096;
        for (let start = this.firstRow; start < this.endRow; start += rowsPerPart) {
            let part = "";
            for (let number = start; number < Math.min(start + rowsPerPart, this.endRow); number++) {
                const { text, hasEnd } = this.row(number);
                part += hasEnd ? `${text}\n` : text;
            }
            yield part;
        }
    }

    /** The chunk at `#at`; lets go of those that are used up. */
    #nextChunk(): Chunk | undefined {
        const chunk = this.#pending[this.#firstPending];
        if (chunk && this.#at < chunk.text.length) {
            return chunk;
        }
        return chunk && this.#skipChunk();
    }

    #skipChunk(): Chunk | undefined {
        this.#firstPending += 1;
        this.#at = 0;
        this.#lineEnd = -1;
        if (this.#firstPending === this.#pending.length || this.#firstPending > 1024) {
            this.#pending = this.#pending.slice(this.#firstPending);
            this.#firstPending = 0;
        }
        return this.#nextChunk();
    }

    /** Takes the rest of the line at `#at`, or a part of it. */
    #takePiece({ stream, text }: Chunk): void {
        const from = this.#at;
        if (this.#lineEnd < from) {
            const feed = text.indexOf("\n", from);
            this.#lineEnd = feed < 0 ? text.length : feed;
        }
        let end = this.#lineEnd;
        if (end - from > maxPiece) {
            end = placeToCut(text, from + maxPiece);
        }
        this.#write(stream, text.slice(from, end));
        this.#at = end;
        if (end === this.#lineEnd && end < text.length) {
            this.#at += 1;
            this.#endLine(stream);
        }
        this.#pendingUnits -= this.#at - from;
    }

    /** Writes text without line feeds. */
    #write(stream: Stream, text: string): void {
        const state = this.#streams[stream];
        const whole = state.held + text;
        state.held = "";
        let from = 0;
        for (;;) {
            special.lastIndex = from;
            const at = special.exec(whole)?.index ?? whole.length;
            if (at > from) {
                this.#writePlain(stream, whole.slice(from, at));
            }
            if (at === whole.length) {
                return;
            }
            from = this.#takeSpecial(stream, whole, at);
        }
    }

    /** @returns where the text goes on */
    #takeSpecial(stream: Stream, text: string, at: number): number {
        const state = this.#streams[stream];
        const character = text.charAt(at);
        if (character === "\r") {
            this.#lineOf(stream)?.returnCarriage();
        } else if (character === "\b") {
            this.#lineOf(stream)?.goBack();
        } else if (character === "\x1b") {
            const control = matchAt(sequences.control, text, at);
            if (control) {
                const [sequence, parameters = "", verb = ""] = control;
                if (verb === "m") {
                    state.style = selectStyle(state.style, parameters);
                } else if (verb === "K") {
                    this.#lineOf(stream)?.erase(parameters);
                }
                return at + sequence.length;
            }
            const other = matchAt(sequences.text, text, at) ?? matchAt(sequences.other, text, at);
            if (other) {
                return at + other[0].length;
            }
            if (text.length - at < maxEscape && matchAt(sequences.unfinished, text, at)) {
                state.held = text.slice(at);
                return text.length;
            }
            this.#writePlain(stream, pictureOf(character));
        } else if (character !== "\x07") {
            this.#writePlain(stream, pictureOf(character));
        }
        return at + 1;
    }

    #writePlain(stream: Stream, text: string): void {
        const { rowUnits } = this.#limits;
        const { style } = this.#streams[stream];
        let rest = text;
        for (;;) {
            const line = this.#lineOf(stream) ?? this.#startLine(stream);
            const room = rowUnits - line.column;
            if (rest.length <= room) {
                line.write(rest, style);
                return;
            }
            const cut = placeToCut(rest, room);
            line.write(rest.slice(0, cut), style);
            this.#finishRow(false);
            rest = rest.slice(cut);
        }
    }

    #endLine(stream: Stream): void {
        const state = this.#streams[stream];
        if (state.held !== "") {
            // No escape sequence goes beyond a line.
            const held = state.held.replaceAll("\x1b", pictureOf("\x1b"));
            state.held = "";
            this.#writePlain(stream, held);
        }
        if (!this.#lineOf(stream)) {
            this.#startLine(stream);
        }
        this.#finishRow(true);
    }

    /** The line that this stream goes on with; undefined if it begins one. */
    #lineOf(stream: Stream): TerminalLine | undefined {
        return this.#line?.stream === stream ? this.#line.content : undefined;
    }

    #startLine(stream: Stream): TerminalLine {
        if (this.#line) {
            this.#finishRow(false);
        }
        const content = new TerminalLine();
        this.#line = { stream, content };
        return content;
    }

    #finishRow(hasEnd: boolean): void {
        if (this.#line) {
            const { stream, content } = this.#line;
            const { text } = content;
            const runs = this.#runsOf(content);
            this.#rows.push(runs ? { stream, text, runs, hasEnd } : { stream, text, hasEnd });
            this.#runs += runs?.length ?? 0;
            this.#rowUnits += text.length + (hasEnd ? 1 : 0);
            this.#line = undefined;
        }
    }

    #runsOf({ runs }: TerminalLine): readonly StyledRun[] | undefined {
        return runs && runs.length <= this.#limits.rowRuns ? runs : undefined;
    }

    #trim(): void {
        const { units, rows, runs: maxRuns } = this.#limits;
        while (
            this.#firstKept < this.#rows.length &&
            (this.length > units || this.#rows.length - this.#firstKept > rows || this.#runs > maxRuns)
        ) {
            const { text, runs, hasEnd } = this.#rows[this.#firstKept] as Row;
            this.#runs -= runs?.length ?? 0;
            const length = text.length + (hasEnd ? 1 : 0);
            this.#rowUnits -= length;
            this.#dropped += length;
            this.#firstKept += 1;
            this.#droppedRows += 1;
        }
        if (this.#firstKept > this.#rows.length / 2) {
            this.#rows = this.#rows.slice(this.#firstKept);
            this.#firstKept = 0;
        }
        for (
            let chunk = this.#nextChunk(), excess = this.length - units;
            chunk && excess > 0;
            chunk = this.#nextChunk(), excess = this.length - units
        ) {
            const length = Math.min(excess, chunk.text.length - this.#at);
            this.#at += length;
            this.#pendingUnits -= length;
            this.#dropped += length;
        }
    }
}

function matchAt(pattern: RegExp, text: string, at: number): RegExpExecArray | null {
    pattern.lastIndex = at;
    return pattern.exec(text);
}

/** A visible stand-in for a control character. */
function pictureOf(character: string): string {
    const code = character.charCodeAt(0);
    if (code < 0x20) {
        return String.fromCharCode(0x2400 + code);
    }
    if (code === 0x7f) {
        return "\u2421";
    }
    return code > 0x9f ? "\u2424" : "\ufffd";
}
