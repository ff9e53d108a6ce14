/** The element with this id, which the page is known to have. */
export function byId<T extends HTMLElement>(id: string, type: new () => T): T {
    const element = document.getElementById(id);
    if (!(element instanceof type)) {
        throw new Error(`the page lacks its ${type.name} #${id}`);
    }
    return element;
}

/** A new element with a class and with text or children. Strings become text nodes, never markup. */
export function make<K extends keyof HTMLElementTagNameMap>(
    tag: K,
    className: string,
    ...children: (Node | string)[]
): HTMLElementTagNameMap[K] {
    const element = document.createElement(tag);
    element.className = className;
    element.append(...children);
    return element;
}
