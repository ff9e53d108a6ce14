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
    #seenWaiting: ReadonlySet<string> = new Set();

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

    /** Takes what a query tells. */
    read({ running, waiting }: Listing): Snapshot<Own> {
        // What came in behind the query is told by the next one.
        const query = numberOf(running.at(-1));
        const waits = waiting.filter((id) => !(numberOf(id) > query));
        const runs = running.slice(0, -1);

        const owners = this.#owners([...runs, ...waits]);
        const name = (id: string): EngineCommand<Own> => ({ id, own: owners.get(id) });
        const seen = this.#seenWaiting;
        this.#seenWaiting = new Set(waits);
        return {
            running: runs.map(name),
            // Queries of other pages wait too, but not for long.
            waiting: waits.map(name).filter(({ id, own }) => own !== undefined || seen.has(id)),
        };
    }

    /** Forgets everything. */
    reset(): void {
        this.#sent.length = 0;
        this.#seenWaiting = new Set();
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
