/**
 * What is on its way to its one reader. It holds what the reader has not taken yet, and nothing of what it has.
 */
export class Queue<T extends object> {
    readonly #limit: number;
    #dropped = 0;
    #incoming: (T | undefined)[] = [];
    /** Taken over from `#incoming` when it is used up. */
    #batch: (T | undefined)[] = [];
    #next = 0;
    #end: { readonly error?: Error | undefined } | undefined;
    /** Wakes the calls of `next` that wait. */
    #wake: (() => void)[] = [];

    /** @param limit how many may wait; beyond it, the oldest are dropped. Default: any number */
    constructor(limit = Infinity) {
        this.#limit = limit;
    }

    /** How many were dropped since the reader was behind. */
    get dropped(): number {
        return this.#dropped;
    }

    /** Ignored after the end. */
    push(item: T): void {
        if (!this.#end) {
            this.#incoming.push(item);
            if (this.#incoming.length + this.#batch.length - this.#next > this.#limit) {
                this.#take();
                this.#dropped += 1;
            }
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

    /** The next one, or undefined at the end. Throws the error once, as a generator does. */
    async next(): Promise<T | undefined> {
        for (;;) {
            const item = this.#take();
            if (item) {
                return item;
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

    /** The oldest, which is taken out, or undefined if there is none. */
    #take(): T | undefined {
        if (this.#next === this.#batch.length) {
            this.#batch = this.#incoming;
            this.#incoming = [];
            this.#next = 0;
        }
        const item = this.#batch[this.#next];
        if (item) {
            this.#batch[this.#next] = undefined;
            this.#next += 1;
        }
        return item;
    }

    #wakeReader(): void {
        const wake = this.#wake;
        this.#wake = [];
        for (const resolve of wake) {
            resolve();
        }
    }
}
