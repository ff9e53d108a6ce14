/** A breakpoint in a text that is being written. */
export interface LineMark {
    /** Counted from 1. */
    readonly line: number;
    /** What has to hold for a stop; empty if nothing has to. */
    readonly condition: string;
}

/** The breakpoints of a text that is being written, each of which stays with its line. */
export class BreakpointLines {
    #conditions = new Map<number, string>();

    /** In the order of their lines. */
    get marks(): readonly LineMark[] {
        return [...this.#conditions]
            .map(([line, condition]) => ({ line, condition }))
            .sort((a, b) => a.line - b.line);
    }

    /** Undefined if there is no breakpoint on that line. */
    conditionOf(line: number): string | undefined {
        return this.#conditions.get(line);
    }

    toggle(line: number): void {
        if (!this.#conditions.delete(line)) {
            this.#conditions.set(line, "");
        }
    }

    /** Sets a breakpoint, if there is none on that line, with a condition. */
    setCondition(line: number, condition: string): void {
        this.#conditions.set(line, condition.trim());
    }

    /** The text has changed. What stands before and behind the changed lines keeps its breakpoints. */
    follow(before: string, after: string): void {
        const old = before.split("\n");
        const now = after.split("\n");
        const shorter = Math.min(old.length, now.length);
        let start = 0;
        while (start < shorter && old[start] === now[start]) {
            start += 1;
        }
        let end = 0;
        while (end < shorter - start && old[old.length - 1 - end] === now[now.length - 1 - end]) {
            end += 1;
        }
        const moved = new Map<number, string>();
        for (const { line, condition } of this.marks) {
            if (line > old.length - end) {
                moved.set(line + now.length - old.length, condition);
            } else if (line <= Math.max(start, now.length - end)) {
                moved.set(line, condition);
            }
        }
        this.#conditions = moved;
    }

    clear(): void {
        this.#conditions.clear();
    }
}
