/** A run of text of one stream. */
export interface Run {
    readonly stream: 0 | 1;
    text: string;
}

/**
 * What one command printed, bounded, as a terminal would show it: a carriage return goes back to the
 * start of the line, so that a progress bar stays one line.
 */
export class OutputText {
    readonly #limit: number;
    readonly #runs: Run[] = [];
    #length = 0;
    #dropped = 0;

    /** @param limit how many UTF-16 units are kept; of more, the oldest go */
    constructor(limit = 200_000) {
        this.#limit = limit;
    }

    /** Neighbouring runs are of different streams. */
    get runs(): readonly Run[] {
        return this.#runs;
    }

    /** How many UTF-16 units were dropped to keep the bound. */
    get dropped(): number {
        return this.#dropped;
    }

    append(stream: 0 | 1, text: string): void {
        const last = this.#runs.at(-1);
        if (last?.stream === stream) {
            this.#length -= last.text.length;
            last.text = returnCarriages(last.text, text);
            this.#length += last.text.length;
        } else {
            const run = { stream, text: returnCarriages("", text) };
            this.#runs.push(run);
            this.#length += run.text.length;
        }
        this.#trim();
    }

    #trim(): void {
        while (this.#length > this.#limit) {
            const first = this.#runs[0];
            if (!first) {
                return;
            }
            const excess = Math.min(this.#length - this.#limit, first.text.length);
            first.text = first.text.slice(excess);
            this.#length -= excess;
            this.#dropped += excess;
            if (first.text === "") {
                this.#runs.shift();
            }
        }
    }
}

/** `text` written behind `before`; only the last line of `before` can still change. */
function returnCarriages(before: string, text: string): string {
    if (!text.includes("\r") && !before.endsWith("\r")) {
        return before + text;
    }
    const start = before.lastIndexOf("\n") + 1;
    const lines = (before.slice(start) + text).replaceAll("\r\n", "\n").split("\n");
    return before.slice(0, start) + lines.map(overwrite).join("\n");
}

function overwrite(line: string): string {
    // A return at the very end waits for what follows: a line feed, or text that overwrites.
    const pending = line.endsWith("\r") ? "\r" : "";
    let shown = "";
    for (const part of line.split("\r")) {
        shown = part + shown.slice(part.length);
    }
    return shown + pending;
}
