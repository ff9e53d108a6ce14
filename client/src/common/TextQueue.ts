import type { TextChunk } from "./checks.js";

/**
 * Text on its way to its one reader. It holds what the reader has not taken yet, without bound, and nothing
 * of what it has.
 */
export class TextQueue {
    #incoming: (TextChunk | undefined)[] = [];
    /** Taken over from `#incoming` when it is used up. */
    #batch: (TextChunk | undefined)[] = [];
    #next = 0;
    #end: { readonly error?: Error | undefined } | undefined;
    /** Wakes the calls of `next` that wait. */
    #wake: (() => void)[] = [];

    /** Ignored after the end. */
    push(chunk: TextChunk): void {
        if (!this.#end) {
            this.#incoming.push(chunk);
            this.#wakeReader();
        }
    }

    /** The reader gets what waits, and then the end, or the error if there is one. The first end counts. */
    end(outcome: { readonly error?: Error | undefined } = {}): void {
        this.#end ??= outcome;
        this.#wakeReader();
    }

    /** Ends it from the reader's side: what waits is let go. */
    discard(): void {
        this.#incoming = [];
        this.#batch = [];
        this.#next = 0;
        this.#end = {};
        this.#wakeReader();
    }

    /** The next piece, or undefined at the end. Throws the error once, as a generator does. */
    async next(): Promise<TextChunk | undefined> {
        for (;;) {
            if (this.#next === this.#batch.length) {
                this.#batch = this.#incoming;
                this.#incoming = [];
                this.#next = 0;
            }
            const chunk = this.#batch[this.#next];
            if (chunk) {
                this.#batch[this.#next] = undefined;
                this.#next += 1;
                return chunk;
            }
            if (this.#end) {
                const { error } = this.#end;
                this.#end = {};
                if (error !== undefined) {
                    throw error;
                }
                return undefined;
            }
            await new Promise<void>((resolve) => this.#wake.push(resolve));
        }
    }

    #wakeReader(): void {
        const wake = this.#wake;
        this.#wake = [];
        for (const resolve of wake) {
            resolve();
        }
    }
}
