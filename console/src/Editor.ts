import type { LineMark } from "./BreakpointLines";
import { CommandHistory } from "./CommandHistory";
import type { Gutter } from "./Gutter";
import { indentationAfter } from "./indentation";

/** The editor shows this many lines before it scrolls. */
const maxRows = 12;

/** The input: Enter runs, Shift+Enter breaks the line, the arrows walk through earlier commands. */
export class Editor {
    readonly #area: HTMLTextAreaElement;
    readonly #history = new CommandHistory();
    readonly #gutter: Gutter;
    readonly #onRun: (command: string, breakpoints: readonly LineMark[]) => void;

    /**
     * @param area the text area
     * @param form its form, whose button runs the command too
     * @param gutter beside the area
     * @param onRun called with each command that is run, never an empty one, and the breakpoints on its lines
     */
    constructor(
        area: HTMLTextAreaElement,
        form: HTMLFormElement,
        gutter: Gutter,
        onRun: (command: string, breakpoints: readonly LineMark[]) => void,
    ) {
        this.#area = area;
        this.#gutter = gutter;
        this.#onRun = onRun;
        area.addEventListener("keydown", (event) => {
            this.#onKey(event);
        });
        area.addEventListener("input", () => {
            this.#fit("edited");
        });
        form.addEventListener("submit", (event) => {
            event.preventDefault();
            this.#run();
        });
    }

    /** Commands wait in the editor while they can't be run. */
    enabled = false;

    get isEmpty(): boolean {
        return this.#area.value === "";
    }

    focus(): void {
        this.#area.focus();
    }

    #onKey(event: KeyboardEvent): void {
        if (event.isComposing || event.ctrlKey || event.metaKey || event.altKey) {
            return;
        }
        const { value, selectionStart, selectionEnd } = this.#area;
        if (event.key === "Enter") {
            event.preventDefault();
            if (event.shiftKey) {
                const before = value.slice(0, selectionStart);
                this.#area.setRangeText(`\n${indentationAfter(before)}`, selectionStart, selectionEnd, "end");
                this.#fit("edited");
            } else {
                this.#run();
            }
        } else if (event.key === "ArrowUp" && !value.slice(0, selectionStart).includes("\n")) {
            this.#show(event, this.#history.previous(value));
        } else if (event.key === "ArrowDown" && !value.slice(selectionEnd).includes("\n")) {
            this.#show(event, this.#history.next());
        }
    }

    #show(event: KeyboardEvent, command: string | undefined): void {
        if (command !== undefined) {
            event.preventDefault();
            this.#area.value = command;
            this.#area.setSelectionRange(command.length, command.length);
            this.#fit("replaced");
        }
    }

    #run(): void {
        const command = this.#area.value.trimEnd();
        if (command !== "" && this.enabled) {
            this.#history.add(command);
            const breakpoints = this.#gutter.marks;
            this.#area.value = "";
            this.#fit("replaced");
            this.#onRun(command, breakpoints);
        }
    }

    /** The text is another. */
    #fit(change: "edited" | "replaced"): void {
        this.#area.rows = Math.min(this.#area.value.split("\n").length, maxRows);
        this.#gutter.update(change);
    }
}
