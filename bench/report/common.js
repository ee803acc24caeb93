// An element with a class; texts are never taken for markup.
function add(parent, tag, text, className) {
  const element = parent.appendChild(document.createElement(tag));
  if (text !== undefined) element.textContent = text;
  if (className) element.className = className;
  return element;
}
