import type { Breakpoints, Client, DebuggerResumed, DebuggerStopped, EventSubscription } from "yvm-client";

/** What a client is told of the debugger, event by event. */
export class DebuggerWatch {
    readonly #stops: EventSubscription<"yvm::DebuggerStoppedEvent">;
    readonly #resumes: EventSubscription<"yvm::DebuggerResumedEvent">;
    readonly #changes: EventSubscription<"yvm::BreakpointsChangedEvent">;

    private constructor(client: Client) {
        this.#stops = client.events("yvm::DebuggerStoppedEvent");
        this.#resumes = client.events("yvm::DebuggerResumedEvent");
        this.#changes = client.events("yvm::BreakpointsChangedEvent");
    }

    /** Resolves when the client is told of what comes from now on. */
    static async of(client: Client): Promise<DebuggerWatch> {
        const watch = new DebuggerWatch(client);
        await Promise.all([watch.#stops, watch.#resumes, watch.#changes].map(({ subscribed }) => subscribed));
        return watch;
    }

    stopped(): Promise<DebuggerStopped> {
        return nextOf(this.#stops);
    }

    resumed(): Promise<DebuggerResumed> {
        return nextOf(this.#resumes);
    }

    async changed(): Promise<Breakpoints["breakpoints"]> {
        return (await nextOf(this.#changes)).breakpoints;
    }
}

async function nextOf<T>(events: AsyncIterator<T, undefined>): Promise<T> {
    const { value } = await events.next();
    if (value === undefined) {
        throw new Error("the events have ended");
    }
    return value;
}
