import { execFileSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";

/** Where a command on the same machine waits until the test lets it go: a named pipe in a folder of its own. */
export class Gate {
    readonly #folder = mkdtempSync(join(tmpdir(), "yvm-"));
    readonly #pipe = join(this.#folder, "pipe");

    constructor() {
        execFileSync("mkfifo", [this.#pipe]);
    }

    /** The pipe in Python, as a file that opens when `open` is called. */
    get python(): string {
        return `open(${JSON.stringify(this.#pipe)})`;
    }

    /** Lets one command go, which reads "free". Waits for it to come. */
    async open(): Promise<void> {
        await writeFile(this.#pipe, "free");
    }

    /** To be called when no command waits any more. */
    remove(): void {
        rmSync(this.#folder, { recursive: true });
    }
}
