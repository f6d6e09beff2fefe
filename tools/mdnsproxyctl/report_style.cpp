// SPDX-License-Identifier: MIT
// The page's style sheet. It must hold no "<" and no "&", since the page is well-formed XML too.
#include "mdnsproxyctl/report.h"

const HtmlConstant kReportStyle = R"css(
:root {
  color-scheme: light dark;
  --ink: #1b2330; --soft: #566072; --line: #cbd2dd; --back: #ffffff; --box: #f3f5f9;
  --good: #17703f; --bad: #b3261a; --open: #8a4b08;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ink: #e6e9ef; --soft: #a2acbc; --line: #3b4557; --back: #11151c; --box: #1b212c;
    --good: #52c98f; --bad: #ff8d82; --open: #f2b75c;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; max-width: 1120px; padding: 20px 16px 48px;
  font: 15px/1.45 system-ui, sans-serif; color: var(--ink); background: var(--back); overflow-wrap: anywhere;
}
h1 { font-size: 22px; margin: 0 0 4px; }
h2 { font-size: 17px; margin: 28px 0 8px; }
h3 { font-size: 16px; margin: 0; }
p { margin: 0; }
ul { list-style: none; margin: 0; padding: 0; }
bdi { white-space: pre-wrap; }
small { font-size: 13px; color: var(--soft); }
code { font: 13px ui-monospace, monospace; }
.good { color: var(--good); }
.bad { color: var(--bad); }
.open { color: var(--open); }
.gone, .note, .facts { color: var(--soft); }
.note { margin-bottom: 8px; }
.facts span:not(:last-child)::after { content: " \00b7"; }
.banner {
  margin-top: 16px; padding: 12px 16px; border: 1px solid var(--bad); border-radius: 10px; color: var(--bad);
  font-weight: 600;
}
summary { cursor: pointer; padding: 4px 0; }

.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(150px, 1fr)); gap: 10px; margin-top: 16px; }
.tiles li {
  padding: 10px 14px; border: 1px solid var(--line); border-radius: 10px; background: var(--box);
  color: var(--ink);
}
.tiles li > b { display: block; font-size: 24px; line-height: 1.2; }
.tiles li > b small { font-size: 15px; font-weight: 400; }
.tiles li > small { display: block; }
.tiles .good > b { color: var(--good); }
.tiles .bad > b { color: var(--bad); }
.tiles .open > b { color: var(--open); }

table { width: 100%; border-collapse: collapse; table-layout: fixed; font-size: 14px; }
th { text-align: left; font-weight: 500; color: var(--soft); }
th, td { padding: 5px 10px 5px 0; border-bottom: 1px solid var(--line); vertical-align: top; }
.checks th:nth-child(1) { width: 80px; }
.checks th:nth-child(2) { width: 130px; }
.events th:nth-child(1) { width: 160px; }
.events th:nth-child(3) { width: 150px; }
.events th:nth-child(4) { width: 150px; }
.events bdi { font-weight: 600; }

.way { position: relative; padding: 12px 0; margin-bottom: 16px; }
.way::before, .way::after {
  content: ""; position: absolute; top: 0; bottom: 0; width: 31%;
  border: 1px solid var(--line); border-radius: 10px; background: var(--box);
}
.way::before { left: 0; }
.way::after { right: 0; }
.way > * { position: relative; z-index: 1; }
.ends, .rule li { display: grid; grid-template-columns: 31% 38% 31%; }
.ends > div { padding: 0 14px; }
.ends > p { text-align: center; font-size: 22px; line-height: 1; color: var(--soft); }
.rule { margin-top: 14px; padding: 8px 0; }
.rule::before {
  content: ""; position: absolute; inset: 0 calc(31% + 14px); z-index: -1;
  border: 1px dashed var(--line); border-radius: 8px;
}
.title, .rule summary { margin: 0 calc(31% + 26px); }
.title { padding-bottom: 6px; font-size: 13px; color: var(--soft); }
.title b { color: var(--ink); font-weight: 600; }
.title small { display: block; }
.rule summary { font-size: 14px; }
.rule li > p { padding: 6px 14px; overflow: clip; }
.rule li > p > bdi { font-weight: 600; }
.rule li small { display: block; }
.rule li > p:nth-child(2) { padding: 6px 0; font-size: 13px; }
.there > li > p:nth-child(2) { padding: 0 18px; color: var(--good); text-align: center; overflow: visible; }
.there > li > .new { color: var(--open); }
.rule i { display: block; position: relative; height: 0; }
.there i { margin: 1px -10px 0 -18px; border-top: 2px solid var(--good); }
.there i::after {
  content: ""; position: absolute; right: -8px; top: -6px;
  border: 5px solid transparent; border-left: 8px solid var(--good); border-right: 0;
}
.rule li.bad > p, .rule li.open > p { color: var(--ink); }
.rule li.bad > p:nth-child(2), .rule li.open > p:nth-child(2) {
  display: grid; grid-template-columns: 42px 1fr; padding-right: 26px;
}
.rule li.bad > p > span { color: var(--bad); }
.rule li.open > p > span { color: var(--open); }
.bad i { margin: 9px 14px 0 0; border-top: 2px solid var(--bad); color: var(--bad); }
.open i { margin: 9px 14px 0 0; border-top: 2px dotted var(--open); color: var(--open); }
.rule li.bad i::after, .rule li.open i::after {
  position: absolute; right: -9px; top: -14px; font: 700 20px/26px sans-serif;
}
.rule li.bad i::after { content: "\00d7"; }
.rule li.open i::after { content: "?"; font-size: 14px; }

@media (max-width: 720px) {
  .tiles li:last-child { grid-column: 1 / -1; }
  .way { padding: 0; }
  .way::before, .way::after { display: none; }
  .ends { grid-template-columns: 1fr 28px 1fr; align-items: start; }
  .ends > div {
    padding: 8px 10px; border: 1px solid var(--line); border-radius: 10px; background: var(--box);
    height: 100%;
  }
  .ends > p { padding-top: 12px; }
  .rule { margin-top: 8px; padding: 8px 10px; }
  .rule::before { inset: 0; }
  .title, .rule summary { margin: 0; }
  .rule li { display: block; margin-top: 8px; padding-left: 10px; border-left: 3px solid var(--line); }
  .rule li > p, .rule li > p:nth-child(2), .there > li > p:nth-child(2) { padding: 1px 0; text-align: left; }
  .there > li { border-left-color: var(--good); }
  .rule li.bad { border-left-color: var(--bad); }
  .rule li.open { border-left-color: var(--open); }
  .rule i { display: none; }
  .rule li.bad > p:nth-child(2), .rule li.open > p:nth-child(2) { display: block; }
  .there > li > p:nth-child(3):not(.new) { display: none; }
  .there > li > .new::before { content: "there as "; }
  thead { display: none; }
  table, tbody, tr, td { display: block; }
  tr { padding: 6px 0; border-bottom: 1px solid var(--line); }
  td { padding: 0; border: 0; }
  td:empty { display: none; }
  .events tr { display: flex; flex-wrap: wrap; column-gap: 10px; }
  .events td { font-size: 13px; color: var(--soft); }
  .events td:nth-child(2) { flex: 0 0 100%; order: -1; color: var(--ink); font-size: 14px; }
  .checks td:nth-child(-n+2) { display: inline; margin-right: 8px; font-weight: 600; }
  .checks td:nth-child(4):not(:empty)::before { content: "cure: "; color: var(--soft); }
  .events td:nth-child(5) { flex: 0 0 100%; }
  .events td.good { color: var(--good); }
  .events td.bad { color: var(--bad); }
  .events td.open { color: var(--open); }
}
)css";
