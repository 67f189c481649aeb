// Live while dragging: a slider dragged, or a number scrubbed by dragging its
// label sideways, sends its value as it goes. One value is in flight at a
// time, with its render: values that come meanwhile wait, and only the newest
// is sent once its picture is shown (a proxy, with one chosen). When the hand
// rests the full resolution follows, and at once when it lets go; a value sent
// meanwhile cancels that render at the server rather than wait behind it.
const [dragTo,dragEnd]=(()=>{
  const rest=150;  // ms without a move that count as resting
  let held=null,sent=null,sending=null,posting=null,restTimer=0,moved=0;
  const resting=()=>performance.now()-moved>=rest;
  function to(c,value){controlHeld=true;moved=performance.now();held={id:c.id,value};
    const f=document.querySelector('#controls .row[data-id="'+c.id+'"] input[type=number]');if(f)f.value=value;
    clearTimeout(restTimer);restTimer=setTimeout(rested,rest);sending=sending||send()}
  async function send(){
    while(held){const h=held;held=null;
      try{tool=await (posting=api('/api/set',sent=h).then(r=>r.json()));err()}catch(e){err(e.message)}
      // A hand that rested meanwhile is shown this value at full resolution only.
      wantFull=controlHeld&&resting();await refresh()}
    sending=null;if(controlHeld&&resting())rested()}
  // A value still on its way is left to the loop, which looks again when done.
  function rested(){if(!sending){wantFull=true;refresh()}}
  // Through `set`, as a click is: the controls are drawn again and the full
  // resolution asked for at once. It follows a value on its way, not its render,
  // which it cancels; a value already drawn at full resolution is not sent again.
  async function end(c,value){if(!controlHeld)return;clearTimeout(restTimer);controlHeld=false;held=null;
    await posting?.catch(()=>{});const v=$('view').dataset;
    if(sent?.id==c.id&&sent.value==value&&v.proxy==1&&v.version==tool.version)show(tool,true);else set(c.id,value,true)}
  // Across the slider's width, the label moves the value as the slider would (its step and limits too).
  $('controls').addEventListener('pointerdown',e=>{const l=e.target.closest('.row>label'),
    s=l&&l.parentNode.querySelector('input[type=range]');if(!s)return;e.preventDefault();l.setPointerCapture(e.pointerId);
    const c=controls().find(c=>c.id==l.parentNode.dataset.id),x0=e.clientX,v0=+s.value,per=(s.max-s.min)/s.clientWidth;
    let v=v0;l.onpointermove=m=>{s.value=v0+(m.clientX-x0)*per;if(+s.value!=v)to(c,v=+s.value)};
    l.onpointerup=()=>{l.onpointermove=l.onpointerup=null;end(c,v)}});
  return [to,end]})();
