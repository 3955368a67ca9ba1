// Builds elements. All texts go in as text, never as markup, and styles by properties: the page's policy admits no style
// attributes.

function fill(element, attributes, children) {
    for (const [name, value] of Object.entries(attributes)) {
        if (name.startsWith("on")) {
            element.addEventListener(name.slice(2), value);
        } else if (typeof value === "boolean") {
            element.toggleAttribute(name, value);
        } else {
            element.setAttribute(name, value);
        }
    }
    element.append(...children.filter((child) => child !== null));
    return element;
}

export const html = (name, attributes = {}, ...children) => fill(document.createElement(name), attributes, children);

const svgSpace = "http://www.w3.org/2000/svg";
export const svg = (name, attributes = {}, ...children) => fill(document.createElementNS(svgSpace, name), attributes, children);

export function styled(element, properties) {
    for (const [name, value] of Object.entries(properties)) {
        element.style.setProperty(name, value);
    }
    return element;
}

export const percent = (share) => `${(share * 100).toFixed(3)}%`;
export const clamp = (value, low, high) => Math.min(Math.max(value, low), high);
