/** Earlier commands, walked through with the arrow keys. */
export class CommandHistory {
    readonly #limit: number;
    readonly #commands: string[] = [];
    /** Place of the shown command; the length of the list stands for the draft. */
    #place = 0;
    #draft = "";

    /** @param limit how many commands are kept */
    constructor(limit = 500) {
        this.#limit = limit;
    }

    /** Enters a command that was run, unless it repeats the last one, and goes back to an empty draft. */
    add(command: string): void {
        if (command !== this.#commands.at(-1)) {
            this.#commands.push(command);
            if (this.#commands.length > this.#limit) {
                this.#commands.shift();
            }
        }
        this.#place = this.#commands.length;
        this.#draft = "";
    }

    /**
     * The command before the one that is shown.
     *
     * @param shown the present text, kept as the draft when the walk begins
     * @returns undefined at the oldest one
     */
    previous(shown: string): string | undefined {
        if (this.#place === this.#commands.length) {
            this.#draft = shown;
        }
        if (this.#place === 0) {
            return undefined;
        }
        this.#place -= 1;
        return this.#commands[this.#place];
    }

    /** The command after the one that is shown, in the end the draft; undefined behind it. */
    next(): string | undefined {
        if (this.#place === this.#commands.length) {
            return undefined;
        }
        this.#place += 1;
        return this.#commands[this.#place] ?? this.#draft;
    }
}
