import { YvmError, type InputRequest } from "yvm-client";

import { make } from "./dom";

/** What an input field does. */
export interface InputActions {
    /** Hands the line on, or the end of the input; rejects with YvmError if somebody else was faster. */
    answer(id: string, line: string | null): Promise<void>;
    /** The field is of no more use; `echo` is what stays of it on the page. Called once. */
    done(field: InputField, echo: string): void;
}

/**
 * Asks the reader for the line that a command waits for. The question itself is among the command's text, above
 * the field, and said here for those who do not see that.
 */
export class InputField {
    readonly element: HTMLFormElement;
    readonly #request: InputRequest;
    readonly #actions: InputActions;
    readonly #input = make("input", "");
    readonly #note = make("p", "note");
    /** What stays on the page of the answer that is on its way. */
    #echo: string | undefined;
    #isDone = false;

    constructor(request: InputRequest, actions: InputActions) {
        this.#request = request;
        this.#actions = actions;
        this.#input.type = request.password ? "password" : "text";
        this.#input.autocomplete = "off";
        this.#input.autocapitalize = "off";
        this.#input.spellcheck = false;
        this.#input.placeholder = "Enter answers";
        this.#note.setAttribute("role", "status");
        const question = make("span", "visually-hidden", request.prompt.trim() || "A line for the command");
        this.element = make("form", "input-field", make("label", "", question, this.#input), this.#note);
        this.element.addEventListener("submit", (event) => {
            event.preventDefault();
            const { value } = this.#input;
            void this.#answer(value, `${request.password ? "•".repeat(value.length) : value}\n`);
        });
        this.#input.addEventListener("keydown", (event) => {
            if (event.ctrlKey && event.key === "d" && this.#input.value === "") {
                event.preventDefault(); // of the browser, a bookmark
                void this.#answer(null, "^D\n");
            }
        });
    }

    focus(): void {
        this.#input.focus({ preventScroll: true });
    }

    /** The command goes on, whoever has answered. */
    goOn(): void {
        this.#finish(this.#echo ?? "\n");
    }

    async #answer(line: string | null, echo: string): Promise<void> {
        if (this.#echo !== undefined) {
            return;
        }
        this.#echo = echo;
        this.#input.readOnly = true;
        this.#note.textContent = "";
        try {
            await this.#actions.answer(this.#request.id, line);
            this.#finish(echo);
        } catch (error) {
            if (error instanceof YvmError) {
                this.#finish("\n");
            } else {
                this.#echo = undefined;
                this.#input.readOnly = false;
                this.#note.textContent = `not answered: ${error instanceof Error ? error.message : String(error)}`;
            }
        }
    }

    #finish(echo: string): void {
        if (!this.#isDone) {
            this.#isDone = true;
            this.#actions.done(this, echo);
        }
    }
}
