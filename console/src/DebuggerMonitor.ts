import type { DebugFrame, DebuggerResumed, DebuggerStopped, DebugVariable, StopReason } from "yvm-client";

/** What a command that has stopped looks like. */
export interface Stop {
    /** Why it has stopped; undefined if that was told before this page was there. */
    readonly reason: StopReason | undefined;
    /** More of the reason; may be empty. */
    readonly message: string;
    /** Innermost last; one of them is selected. */
    readonly frames: readonly DebugFrame[];
    /** Of the selected frame; undefined until they are known. */
    readonly variables: readonly DebugVariable[] | undefined;
}

/** Whom the monitor asks; both reject when nothing is stopped. */
export interface DebuggerSource {
    stack(): Promise<readonly DebugFrame[]>;
    locals(): Promise<readonly DebugVariable[]>;
}

type Reason = Pick<Stop, "reason" | "message">;

const unknownReason: Reason = { reason: undefined, message: "" };

/** Keeps what is shown of the innermost stop, with its variables, as the engine tells of it. */
export class DebuggerMonitor {
    readonly #source: DebuggerSource;
    readonly #show: (stop: Stop | undefined) => void;
    /** Why the stops that stand have come about, outermost first, as far as it was told. */
    #reasons: Reason[] = [];
    #stop: Stop | undefined;
    /** Counts what has happened: an answer to an earlier question is let go. */
    #moment = 0;

    /**
     * @param source whom to ask
     * @param show called with each change; undefined is no stop
     */
    constructor(source: DebuggerSource, show: (stop: Stop | undefined) => void) {
        this.#source = source;
        this.#show = show;
    }

    /** A command has stopped. */
    stopped({ reason, level, message, stackFrames }: DebuggerStopped): void {
        this.#reasons.length = level - 1;
        this.#reasons[level - 1] = { reason, message };
        const frames = stackFrames.map((frame, index) => ({
            ...frame,
            selected: index === stackFrames.length - 1,
        }));
        this.#set({ reason, message, frames, variables: undefined });
        void this.look();
    }

    /** A stop is over. */
    resumed({ level }: DebuggerResumed): void {
        this.#reasons.length = Math.min(this.#reasons.length, level - 1);
        if (level > 1) {
            void this.look(); // the one beneath it still stands
        } else {
            this.#set(undefined);
        }
    }

    /** Nobody knows any more whether something is stopped, as there is nobody to ask. */
    forget(): void {
        this.#reasons = [];
        this.#set(undefined);
    }

    /** Asks for the innermost stop: another frame was selected, or a command may have changed variables. */
    async look(): Promise<void> {
        const moment = ++this.#moment;
        try {
            const [frames, variables] = await Promise.all([this.#source.stack(), this.#source.locals()]);
            if (moment === this.#moment) {
                this.#set({ ...(this.#reasons.at(-1) ?? unknownReason), frames, variables });
            }
        } catch {
            // Nothing is stopped, or not any more, which an event tells; or the link is lost, which the page tells.
        }
    }

    #set(stop: Stop | undefined): void {
        this.#moment += 1;
        if (stop || this.#stop) {
            this.#stop = stop;
            this.#show(stop);
        }
    }
}
