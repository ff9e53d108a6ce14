import { CommandHistory } from "./CommandHistory";
import { indentationAfter } from "./indentation";

/** The editor shows this many lines before it scrolls. */
const maxRows = 12;

/** The input: Enter runs, Shift+Enter breaks the line, the arrows walk through earlier commands. */
export class Editor {
    readonly #area: HTMLTextAreaElement;
    readonly #history = new CommandHistory();
    readonly #onRun: (command: string) => void;

    /**
     * @param area the text area
     * @param form its form, whose button runs the command too
     * @param onRun called with each command that is run, never an empty one
     */
    constructor(area: HTMLTextAreaElement, form: HTMLFormElement, onRun: (command: string) => void) {
        this.#area = area;
        this.#onRun = onRun;
        area.addEventListener("keydown", (event) => {
            this.#onKey(event);
        });
        area.addEventListener("input", () => {
            this.#fit();
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
                this.#fit();
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
            this.#fit();
        }
    }

    #run(): void {
        const command = this.#area.value.trimEnd();
        if (command !== "" && this.enabled) {
            this.#history.add(command);
            this.#area.value = "";
            this.#fit();
            this.#onRun(command);
        }
    }

    #fit(): void {
        this.#area.rows = Math.min(this.#area.value.split("\n").length, maxRows);
    }
}
