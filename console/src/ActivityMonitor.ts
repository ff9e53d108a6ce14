import { CommandTracker, type Listing, type Snapshot } from "./CommandTracker";

/** Milliseconds from one query to the next: while something runs, and while nothing does. */
const busyInterval = 1000;
const idleInterval = 5000;

/** A command that ends within this time is not worth a query, and one that may be a query has ended then. */
const startDelay = 300;

/** A query that takes longer than this finds the engine inside one long call. */
const answerDelay = 1000;

/** What is known of the engine's commands. */
export interface Activity<Own> extends Snapshot<Own> {
    /** False while the engine does not answer; the rest is then what it last told. */
    readonly answers: boolean;
}

/** What the monitor asks of the engine. Each sends its query before it returns. */
export interface Queries {
    list(): Promise<Listing>;
    /** Gives the engine's identifier of this query itself. */
    mark(): Promise<string>;
}

const nothing = { running: [], waiting: [], answers: true };

/**
 * Asks the engine what runs and what waits, and tells the page. One query is open at a time, and none is
 * sent while nobody sees the page.
 */
export class ActivityMonitor<Own> {
    readonly #queries: Queries;
    readonly #show: (activity: Activity<Own>) => void;
    readonly #tracker = new CommandTracker<Own>();
    #activity: Activity<Own> = nothing;
    /** One for each command whose place the engine has yet to tell. */
    readonly #pendingBounds = new Set<Promise<void>>();
    #isAttached = false;
    #isVisible = true;
    #isAsking = false;
    #timer: ReturnType<typeof setTimeout> | undefined;

    /**
     * @param queries how the engine is asked
     * @param show is told what is known, whenever that has changed
     */
    constructor(queries: Queries, show: (activity: Activity<Own>) => void) {
        this.#queries = queries;
        this.#show = show;
    }

    /** Whether there is an engine to ask. */
    set isAttached(value: boolean) {
        if (value !== this.#isAttached) {
            this.#isAttached = value;
            this.#tracker.reset();
            this.#tell(nothing);
            this.#askIn(0);
        }
    }

    /** Whether somebody can see the page. */
    set isVisible(value: boolean) {
        this.#isVisible = value;
        this.#askIn(0);
    }

    /**
     * Sends a command of this page, and learns where it stands among those of others.
     *
     * @param send sends it, and must do so before it returns
     */
    send<T>(own: Own, send: () => T): T {
        const before = this.#mark();
        const sent = send();
        const after = this.#mark();
        this.#tracker.add(own);
        const bounds = Promise.all([before, after]).then(([first, last]) => {
            if (first !== undefined && last !== undefined) {
                this.#tracker.bound(own, first, last);
            }
        });
        this.#pendingBounds.add(bounds);
        void bounds.then(() => this.#pendingBounds.delete(bounds));
        if (!this.#isBusy()) {
            this.#askIn(startDelay);
        }
        return sent;
    }

    /** A command of this page has ended. */
    ended(own: Own): void {
        this.#tracker.remove(own);
        if (this.#isBusy()) {
            this.#askIn(0);
        }
    }

    /** Undefined if the query fails, as others may, too; the command is then listed without its text. */
    #mark(): Promise<string | undefined> {
        return this.#queries.mark().catch(() => undefined);
    }

    #isBusy(): boolean {
        return this.#activity.running.length + this.#activity.waiting.length > 0 || !this.#activity.answers;
    }

    #askIn(delay: number): void {
        clearTimeout(this.#timer);
        if (this.#isAttached && this.#isVisible && !this.#isAsking) {
            this.#timer = setTimeout(() => {
                void this.#ask();
            }, delay);
        }
    }

    async #ask(): Promise<void> {
        this.#isAsking = true;
        const patience = setTimeout(() => {
            this.#tell({ ...this.#activity, answers: false });
        }, answerDelay);
        try {
            const listing = await this.#queries.list();
            // Also of what was sent meanwhile, which the listing may show already.
            await Promise.all(this.#pendingBounds);
            this.#tell({ ...this.#tracker.read(listing), answers: true });
        } catch {
            // The link is lost, which the page tells anyway, or somebody interrupted the query, or has
            // given the helpers' name to something else. There is nothing to show until a query succeeds.
            this.#tell(nothing);
        } finally {
            clearTimeout(patience);
            this.#isAsking = false;
        }
        const isBusy = this.#isBusy() || this.#tracker.size > 0;
        this.#askIn(this.#tracker.hasNews ? startDelay : isBusy ? busyInterval : idleInterval);
    }

    #tell(activity: Activity<Own>): void {
        this.#activity = activity;
        this.#show(activity);
    }
}
