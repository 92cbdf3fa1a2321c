// SPDX-License-Identifier: ISC
// Shows the line behind a mark, and filters the table. The page is whole without this.
"use strict";
(() => {
  const LINES_SHOWN = 6;

  // The card beside a mark: its words, and the lines that it stands for.
  function fill(card, mark) {
    card.replaceChildren();
    const head = document.createElement("p");
    head.className = "card-head";
    head.textContent = mark.getAttribute("aria-label");
    card.append(head);
    const ids = mark.dataset.lines.split(" ").filter(Boolean);
    for (const id of ids.slice(0, LINES_SHOWN)) {
      const row = document.getElementById(id);
      if (!row) continue;
      const line = document.createElement("code");
      line.textContent = row.querySelector(".time").textContent + "  " + row.querySelector("code").textContent;
      card.append(line);
    }
    if (ids.length > LINES_SHOWN) {
      const more = document.createElement("p");
      more.textContent = "and " + (ids.length - LINES_SHOWN) + " more lines";
      card.append(more);
    }
  }

  // Under the mark, or above it where the window ends; never out of the figure.
  function place(card, mark, figure) {
    const within = figure.getBoundingClientRect();
    const at = (mark.querySelector(".hit") || mark).getBoundingClientRect();
    const left = Math.min(Math.max(at.left - within.left - 12, 0), within.width - card.offsetWidth);
    const below = at.bottom + card.offsetHeight + 12 < window.innerHeight;
    const top = below ? at.bottom - within.top + 6 : at.top - within.top - card.offsetHeight - 6;
    card.style.left = Math.max(left, 0) + "px";
    card.style.top = top + "px";
  }

  for (const figure of document.querySelectorAll("figure.drawing")) {
    const card = figure.querySelector(".card");
    const marks = [...figure.querySelectorAll("a[data-lines]")];
    const hide = () => { card.hidden = true; };
    const show = (mark) => {
      fill(card, mark);
      card.hidden = false;
      place(card, mark, figure);
    };
    for (const mark of marks) {
      // The card takes the place of the browser's own hint.
      mark.querySelector("title").remove();
      mark.addEventListener("mouseenter", () => show(mark));
      mark.addEventListener("mouseleave", hide);
      mark.addEventListener("focus", () => show(mark));
      mark.addEventListener("blur", hide);
    }
    figure.addEventListener("keydown", (event) => {
      const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
      const inside = marks.filter((mark) => mark.getClientRects().length);
      const now = inside.indexOf(document.activeElement);
      if (event.key === "Escape") hide();
      if (!step || now < 0) return;
      event.preventDefault();
      inside[Math.min(Math.max(now + step, 0), inside.length - 1)].focus();
    });
  }

  for (const form of document.querySelectorAll("form.filter")) {
    const rows = [...document.getElementById(form.dataset.table).tBodies[0].rows];
    const lanes = [...form.querySelectorAll("fieldset input")];
    const told = form.querySelector("[data-told]");
    const apply = () => {
      const wanted = new Set(lanes.filter((box) => box.checked).map((box) => box.name));
      let count = 0;
      for (const row of rows) {
        row.hidden = !wanted.has(row.dataset.lane) || (told.checked && !row.matches(".told, .proof"));
        count += !row.hidden;
      }
      form.querySelector("output").textContent = count + " of " + rows.length + " lines";
    };
    const set = (value) => {
      for (const box of lanes) box.checked = value;
      apply();
    };
    form.querySelector("[data-all]").addEventListener("click", () => { told.checked = false; set(true); });
    form.querySelector("[data-none]").addEventListener("click", () => set(false));
    form.addEventListener("change", apply);
    form.addEventListener("submit", (event) => event.preventDefault());
    form.hidden = false;
    apply();
  }

  // A line that a link leads to is shown, whatever is filtered.
  function reveal() {
    const row = document.getElementById(decodeURIComponent(location.hash.slice(1)));
    if (!row || row.tagName !== "TR") return;
    row.hidden = false;
    const folded = row.closest("details");
    if (folded) folded.open = true;
    row.scrollIntoView({ block: "center" });
    row.focus({ preventScroll: true });
  }
  window.addEventListener("hashchange", reveal);
  if (location.hash) reveal();
})();
