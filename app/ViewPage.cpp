// The page `lumivane view` serves: the viewer and the tool's controls, built
// from GET /api/tool and kept in step with it. Self-contained: nothing is
// fetched but the API.
#include "app/ViewServer.h"

const char* const kViewPage = R"PAGE(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>Lumivane view</title>
<style>
[hidden]{display:none!important}
body{margin:0;display:flex;height:100vh;font:13px sans-serif;background:#222;color:#ddd}
#stage{flex:1;overflow:auto;display:flex;align-items:center;justify-content:center;background:#111}
#stage.fit img{width:100%;height:100%;object-fit:contain}#stage:not(.fit){display:block}
#side{width:360px;overflow:auto;padding:8px;background:#2a2a2a}
.bar{display:flex;gap:6px;align-items:center;flex-wrap:wrap;margin:4px 0}
button{background:#444;color:#ddd;border:1px solid #555;padding:2px 6px;cursor:pointer}button.on{background:#4a6fa5}
.row{margin:5px 0}.row label{display:block;color:#aaa}.row input[type=range]{width:200px}.row input[type=number]{width:80px}
#err{color:#f77;white-space:pre-wrap}#busy{color:#fc6;visibility:hidden}#busy.on{visibility:visible}
pre{font-size:11px;white-space:pre-wrap;max-height:120px;overflow:auto;background:#1c1c1c}
#kernel{image-rendering:pixelated;max-width:100%;background:#000}
</style></head><body>
<div id="stage" class="fit"><img id="view" alt="output"></div>
<div id="side">
<div class="bar"><b id="name"></b><span id="busy">rendering…</span><span id="ms"></span></div>
<div class="bar"><button id="showIn">Input</button><button id="showOut" class="on">Output</button>
<button id="fit" class="on">Fit</button><button id="one">1:1</button>
<label>Exposure <input id="exp" type="number" step="0.5" value="0" style="width:50px"> stops</label></div>
<div class="bar" id="frames" hidden><label>Frame <input id="frame" type="range"> <span id="frameNo"></span></label></div>
<div id="err"></div>
<div class="bar" id="tabs"></div><div id="controls"></div>
<div class="bar"><button id="save">Save flow</button><span id="saved"></span></div>
<details open><summary>Kernel (red, green, blue)</summary><img id="kernel" alt="kernel"></details>
<details open><summary>Console</summary><pre id="console"></pre></details>
</div>
<script>
const $=id=>document.getElementById(id),H={'X-Lumivane-Token':location.hash.slice(1)};
let tool,page,which='output',inflight=false,again=false;
async function api(path,body){
  const r=await fetch(path,body===undefined?{headers:H}:{method:'POST',headers:{...H,'Content-Type':'application/json'},body:JSON.stringify(body)});
  if(!r.ok)throw new Error((await r.json()).error);return r;}
const err=m=>$('err').textContent=m||'';
async function post(path,body){try{show(await (await api(path,body)).json());err()}catch(e){err(e.message);show(await (await api('/api/tool')).json())}}
const set=(id,value)=>post('/api/set',{id,value});
function el(tag,props,...kids){const e=Object.assign(document.createElement(tag),props);e.append(...kids);return e}
function control(c){
  const row=el('div',{className:'row',hidden:!c.visible}),num=typeof c.value=='number';row.dataset.id=c.id;
  row.append(el('label',{textContent:c.label}));
  if(c.readOnly)row.append(el('span',{textContent:c.value}));
  else if(c.kind=='multi-button')c.entries.forEach((n,i)=>row.append(el('button',{textContent:n,className:c.value==i?'on':'',onclick:()=>set(c.id,i)})));
  else if(c.kind=='checkbox')row.append(el('input',{type:'checkbox',checked:c.value!=0,onchange:e=>set(c.id,e.target.checked)}));
  else if(c.kind=='slider'){const lo=c.min??0,hi=Math.max(c.sliderTop??lo+10,c.value),st=c.integer?1:'any';
    row.append(el('input',{type:'range',min:lo,max:hi,step:c.integer?1:(hi-lo)/1000,value:c.value,onchange:e=>set(c.id,+e.target.value)}),
      el('input',{type:'number',step:st,value:c.value,onchange:e=>set(c.id,e.target.value)}));}
  else row.append(el('input',{value:c.value??'',onchange:e=>set(c.id,e.target.value)}));
  if(tool.sequence&&num&&!c.readOnly)row.append(el('button',{textContent:c.animated?'Set key ◆':'Set key',onclick:()=>post('/api/key',{id:c.id,frame:tool.frame})}));
  return row;}
function show(t){
  tool=t;$('name').textContent=t.name;page=page??t.pages[0].name;
  $('tabs').replaceChildren(...t.pages.map(p=>el('button',{textContent:p.name,className:p.name==page?'on':'',onclick:()=>{page=p.name;show(tool)}})));
  $('controls').replaceChildren(...t.pages.find(p=>p.name==page).controls.map(control));
  $('frames').hidden=!t.sequence;const f=$('frame');f.min=t.frames[0];f.max=t.frames.at(-1);f.value=t.frame;$('frameNo').textContent=t.frame;
  refresh();}
async function picture(img,q){const r=await api('/api/image?'+q);const url=URL.createObjectURL(await r.blob());
  if(img.src)URL.revokeObjectURL(img.src);img.src=url;await img.decode().catch(()=>{});return r;}
// One request at a time; changes meanwhile make one more. A picture older than
// the newest settings is dropped.
async function refresh(){
  if(inflight){again=true;return}inflight=true;$('busy').classList.add('on');
  try{const want=tool.version,r=await fetch('/api/image?which='+which+'&format=png&exposure='+(+$('exp').value||0),{headers:H});
    if(!r.ok)throw new Error((await r.json()).error);
    if(+r.headers.get('X-Lumivane-Version')==tool.version){const img=$('view'),u=img.src;img.src=URL.createObjectURL(await r.blob());
      if(u)URL.revokeObjectURL(u);await img.decode().catch(()=>{});img.dataset.version=want;
      const ms=+r.headers.get('X-Lumivane-Render-Ms');if(ms)$('ms').textContent=ms.toFixed(0)+' ms';err()}
    $('console').textContent=(await (await api('/api/console')).json()).lines.join('\n');
    if(!again)await picture($('kernel'),'which=kernel&format=png');
  }catch(e){err(e.message)}
  inflight=false;$('busy').classList.remove('on');if(again){again=false;refresh()}}
function mode(id,on,off){$(id).onclick=()=>{$(id).classList.add('on');$(off).classList.remove('on');on()}}
mode('showIn',()=>{which='input';refresh()},'showOut');mode('showOut',()=>{which='output';refresh()},'showIn');
mode('fit',()=>$('stage').classList.add('fit'),'one');mode('one',()=>$('stage').classList.remove('fit'),'fit');
$('exp').onchange=refresh;$('frame').onchange=e=>post('/api/frame',{frame:+e.target.value});
$('save').onclick=async()=>{try{$('saved').textContent='saved '+(await (await api('/api/flow',{})).json()).saved}catch(e){err(e.message)}};
api('/api/tool').then(r=>r.json()).then(show).catch(e=>err(e.message));
</script></body></html>)PAGE";
