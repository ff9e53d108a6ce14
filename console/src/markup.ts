import DOMPurify from "dompurify";

/** What tables and formatted text are made of. Nothing that loads, runs, asks or looks like the page itself. */
const tags =
    "a abbr b blockquote br caption code col colgroup dd del details div dl dt em h1 h2 h3 h4 h5 h6 hr i ins kbd " +
    "li mark ol p pre q s samp small span strong sub summary sup table tbody td tfoot th thead time tr u ul var";
const attributes = "align colspan dir headers href lang reversed rowspan scope span start title valign";

const contentless = "iframe math noscript object script style svg template title";

const purifier = DOMPurify(window);
purifier.addHook("afterSanitizeAttributes", (node) => {
    if (node.hasAttribute("href")) {
        node.setAttribute("target", "_blank");
        node.setAttribute("rel", "noopener noreferrer");
    }
});

/**
 * What is harmless of some HTML, which may come from anywhere: without scripts, styles, images, forms, and the
 * names by which the page knows its own elements.
 */
export function harmless(html: string): Node[] {
    // In a template nothing loads and nothing runs.
    const template = document.createElement("template");
    template.innerHTML = withoutReports(html);
    const root = template.content.ownerDocument.createElement("div");
    root.append(template.content);
    purifier.sanitize(root, {
        IN_PLACE: true,
        ALLOWED_TAGS: tags.split(" "),
        ALLOWED_ATTR: attributes.split(" "),
        ALLOW_ARIA_ATTR: false,
        ALLOW_DATA_ATTR: false,
        ALLOWED_URI_REGEXP: /^(?:https?|mailto):/i,
        // With the text in them; otherwise what is not allowed leaves its text behind.
        FORBID_CONTENTS: contentless.split(" "),
    });
    return [...root.childNodes];
}

/**
 * The browser reports styles and handlers of elements as refused by the page's policy, even where nothing would come
 * of them. So they get other names before it reads them; those that are missed here are removed all the same.
 */
function withoutReports(html: string): string {
    return html.replace(/<[a-z][^<>]*>/gi, (tag) =>
        tag.replace(/[\s/"'](?:style|on[a-z]+)\s*=/gi, (name) => `${name.charAt(0)} data-removed=`),
    );
}
