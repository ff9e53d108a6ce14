/** Milliseconds from one query to the next while the engine runs something, which may change variables. */
const busyInterval = 1000;

/** Changes that come closer together than this, in milliseconds, are asked for together. */
const settleTime = 100;

/** Asks for the variables when they may have changed. One query is open at a time, none while nobody looks. */
export class VariablesMonitor<Listing> {
    readonly #list: () => Promise<Listing>;
    readonly #show: (listing: Listing) => void;
    #isWanted = false;
    #isBusy = false;
    #isAsking = false;
    #timer: ReturnType<typeof setTimeout> | undefined;
    /** When the timer fires, on the clock of `performance.now()`. */
    #due = Infinity;

    constructor(list: () => Promise<Listing>, show: (listing: Listing) => void) {
        this.#list = list;
        this.#show = show;
    }

    /** Whether there is an engine to ask and somebody to look. */
    set isWanted(value: boolean) {
        if (value !== this.#isWanted) {
            this.#isWanted = value;
            this.#stop();
            this.#askIn(0);
        }
    }

    /** Whether the engine runs something. */
    set isBusy(value: boolean) {
        this.#isBusy = value;
        if (value) {
            this.#askIn(busyInterval);
        }
    }

    /** The engine says that variables have changed. */
    changed(): void {
        this.#askIn(settleTime);
    }

    #stop(): void {
        clearTimeout(this.#timer);
        this.#due = Infinity;
    }

    /** Asks at the latest in so many milliseconds. */
    #askIn(delay: number): void {
        const due = performance.now() + delay;
        if (this.#isWanted && due < this.#due) {
            clearTimeout(this.#timer);
            this.#due = due;
            this.#timer = setTimeout(() => {
                this.#due = Infinity;
                void this.#ask();
            }, delay);
        }
    }

    async #ask(): Promise<void> {
        if (this.#isAsking) {
            this.#askIn(settleTime); // what has changed meanwhile may not be in the open answer
            return;
        }
        this.#isAsking = true;
        try {
            const listing = await this.#list();
            if (this.#isWanted) {
                this.#show(listing);
            }
        } catch {
            // The link is lost, which the page tells anyway, or somebody interrupted the query, or has given
            // the helpers' name to something else. What was last known stays.
        } finally {
            this.#isAsking = false;
        }
        if (this.#isBusy) {
            this.#askIn(busyInterval);
        }
    }
}
