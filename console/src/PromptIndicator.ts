import type { PromptState } from "yvm-client";

type State = PromptState["state"];

/** Milliseconds after which the engine is shown as busy: a short command shall not flicker. */
const busyDelay = 150;

const texts: Readonly<Record<State, string>> = {
    busy: "busy",
    idle: "idle",
    paused: "paused",
    debug: "stopped",
};

/** Tells what the engine does. */
export class PromptIndicator {
    readonly #element: HTMLElement;
    readonly #onShown: (state: State | undefined) => void;
    #state: State | undefined;
    #timer: ReturnType<typeof setTimeout> | undefined;

    /**
     * @param element where it is told
     * @param onShown is given each state that is shown; that of a short command is not
     */
    constructor(element: HTMLElement, onShown: (state: State | undefined) => void) {
        this.#element = element;
        this.#onShown = onShown;
    }

    /** @param state undefined if it is not known, as nobody is there to tell */
    show(state: State | undefined): void {
        if (state === "busy" && state === this.#state) {
            return; // told again for each command
        }
        this.#state = state;
        clearTimeout(this.#timer);
        if (state === "busy") {
            this.#timer = setTimeout(() => {
                this.#render();
            }, busyDelay);
        } else {
            this.#render();
        }
    }

    #render(): void {
        this.#element.hidden = this.#state === undefined;
        this.#element.textContent = this.#state ? texts[this.#state] : "";
        this.#element.dataset["state"] = this.#state ?? "";
        this.#onShown(this.#state);
    }
}
