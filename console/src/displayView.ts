import type { Form } from "./displayForm";
import { make } from "./dom";
import { harmless } from "./markup";

/** Shows an image or a table; undefined if it is to be shown as text. */
export function displayView(form: Form): HTMLElement | undefined {
    switch (form.kind) {
        case "image": {
            const image = make("img", "");
            image.alt = form.alternative;
            if (form.size) {
                ({ width: image.width, height: image.height } = form.size);
            }
            const figure = make("figure", "display", image);
            image.addEventListener("error", () => {
                figure.replaceChildren(make("p", "note", `The image cannot be shown: ${form.alternative}`));
            });
            image.src = form.address;
            return figure;
        }
        case "html": {
            const content = harmless(form.html);
            const view = make("div", "display markup", ...content);
            if (!view.textContent.trim()) {
                return undefined;
            }
            // What is wider than the page can be scrolled by the keyboard, too.
            view.tabIndex = 0;
            view.setAttribute("role", "group");
            view.setAttribute("aria-label", view.querySelector("table") ? "Table" : "Formatted output");
            return view;
        }
        case "text":
            return undefined;
    }
}
