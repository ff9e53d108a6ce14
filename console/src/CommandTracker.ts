/** What the engine tells of its commands, by its own identifiers. */
export interface Listing {
    /** What runs, outermost first; the query itself is the last. */
    readonly running: readonly string[];
    /** What waits, in the order of arrival. */
    readonly waiting: readonly string[];
}

/** A command of the engine; with `own` if it was sent by this page. */
export interface EngineCommand<Own> {
    readonly id: string;
    readonly own: Own | undefined;
}

export interface Snapshot<Own> {
    readonly running: readonly EngineCommand<Own>[];
    readonly waiting: readonly EngineCommand<Own>[];
}

interface Sent<Own> {
    readonly own: Own;
    /** Identifiers of the queries that were sent just before and just after it, once they are known. */
    bounds: readonly [before: string, after: string] | undefined;
}

/**
 * Finds this page's commands among those of the engine.
 *
 * The engine numbers everything that it is sent, and does not tell a page the numbers of its commands. But a
 * page's messages keep their order, and a query tells its own number. So the number of a command that is sent
 * between two queries lies between theirs, and hardly ever does that of another page's command.
 */
export class CommandTracker<Own> {
    readonly #sent: Sent<Own>[] = [];
    /** What the listing before told. */
    #seen: ReadonlySet<string> = new Set();
    #hasNews = false;

    /** A command was sent. */
    add(own: Own): void {
        this.#sent.push({ own, bounds: undefined });
    }

    /** The queries around a command have told their identifiers. */
    bound(own: Own, before: string, after: string): void {
        const sent = this.#sent.find((candidate) => candidate.own === own);
        if (sent) {
            sent.bounds = [before, after];
        }
    }

    /** A command has ended. */
    remove(own: Own): void {
        const place = this.#sent.findIndex((sent) => sent.own === own);
        if (place >= 0) {
            this.#sent.splice(place, 1);
        }
    }

    /** How many of this page's commands have not ended. */
    get size(): number {
        return this.#sent.length;
    }

    /** Whether the last listing had something that runs and was left out, as it may be a query. */
    get hasNews(): boolean {
        return this.#hasNews;
    }

    /**
     * Takes what a query tells. What is not of this page is told when it is there for the second time: it may be
     * a query, also one of this page, in the midst of which another was answered; and these take no time.
     */
    read(listing: Listing): Snapshot<Own> {
        // What came in behind the query is told by the next one.
        const query = numberOf(listing.running.at(-1));
        const waits = listing.waiting.filter((id) => !(numberOf(id) > query));
        const runs = listing.running.slice(0, -1);

        const owners = this.#owners([...runs, ...waits]);
        const name = (id: string): EngineCommand<Own> => ({ id, own: owners.get(id) });
        const seen = this.#seen;
        this.#seen = new Set([...runs, ...waits]);
        const isKnown = ({ id, own }: EngineCommand<Own>) => own !== undefined || seen.has(id);
        const running = runs.map(name).filter(isKnown);
        this.#hasNews = running.length < runs.length;
        return { running, waiting: waits.map(name).filter(isKnown) };
    }

    /** Forgets everything. */
    reset(): void {
        this.#sent.length = 0;
        this.#seen = new Set();
        this.#hasNews = false;
    }

    #owners(ids: readonly string[]): ReadonlyMap<string, Own> {
        const owners = new Map<string, Own>();
        for (const { own, bounds } of this.#sent) {
            if (bounds) {
                const [before, after] = bounds.map(numberOf) as [number, number];
                const between = ids.filter((id) => numberOf(id) > before && numberOf(id) < after);
                // With another page's command among them there is no telling.
                if (between.length === 1) {
                    owners.set(between[0] as string, own);
                }
            }
        }
        return owners;
    }
}

/** An identifier reads `process:number`, and the numbers of one process grow. */
function numberOf(id: string | undefined): number {
    return Number(id?.split(":").at(-1) ?? NaN);
}

/** An identifier as people are shown it. */
export function shortId(id: string): string {
    const number = numberOf(id);
    return Number.isNaN(number) ? id.slice(0, 8) : `#${String(number)}`;
}
