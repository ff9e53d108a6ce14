import type { Form } from "./displayForm";
import { displayView } from "./displayView";
import { make } from "./dom";
import { OutputView } from "./OutputView";

/** A figure or a table that a command displays. What is seen of it is made by `render`: it takes its time. */
export class DisplayPart {
    /** How many UTF-16 units it was made of. */
    readonly length: number;
    /** Until it is rendered. */
    #form: Form | undefined;
    readonly #text: string;
    #element: HTMLElement = make("div", "");

    /** @param text stands for it where the form shows nothing */
    constructor(form: Form, text: string, length: number) {
        this.#form = form;
        this.#text = text;
        this.length = length;
    }

    /** Holds a place until it is rendered, which puts another one there. */
    get element(): HTMLElement {
        return this.#element;
    }

    /** Shows it, in one piece. */
    render(): true {
        if (this.#form) {
            const element = displayView(this.#form) ?? this.#textView();
            this.#element.replaceWith(element);
            this.#element = element;
            this.#form = undefined;
        }
        return true;
    }

    #textView(): HTMLElement {
        const view = new OutputView();
        view.append({ stream: 0, text: `${this.#text}\n` });
        view.render(Infinity);
        return view.element;
    }
}
